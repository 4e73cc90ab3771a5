#pragma once

// A data holder that holds what a test gives it and records what it is asked to do, one line a
// call: "newRow(Table, 3)". Reads are not recorded; the answers show them. Operations stand in the
// order of IDataHolder. Set it up before threads use it; the record may be read at any time.

#include "IDataHolder.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

class FakeDataHolder : public IDataHolder
{
public:
    using In = const std::string&;
    using Texts = std::vector<std::string>;

    std::map<std::string, std::string> values;   ///< By "data set/component/row/item".
    std::map<std::string, Texts> properties;     ///< By "data set/component".
    std::map<std::string, Texts> instances;      ///< By "data set/component".
    std::map<std::string, std::string> dataSets; ///< The data set of a component.
    std::map<std::string, Fcodes> refusals;      ///< Of setTextParam(), by item.

    /// The answer to a command.
    std::function<Fcodes(const std::string& command, std::string& result)> onExecute;

    Texts calls();
    bool waitForCall(const std::string& call);

    void init(const std::string& name) override;
    Fcodes acceptChanges() override;
    Fcodes rollbackChanges() override;
    Fcodes execute(const std::string& command, std::string& result) override;
    Fcodes handle(MessageEvent* event) override;
    Fcodes doExecute(const std::string& command, std::string& result) override;
    Fcodes doHandle(MessageEvent* event) override;
    int newRow(const std::string& table, int rowId) override;
    int appendNewRow(const std::string& table) override;
    int getFirstRowIndex(const std::string& table) override;
    int getNextRowIndex(const std::string& table, int rowId) override;
    Fcodes deleteRow(const std::string& table, int rowId) override;
    Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) override;
    Fcodes getProperties(const std::string& dataset, const std::string& component,
                         Texts& names) override;
    Fcodes getInstances(const std::string& dataset, const std::string& component,
                        Texts& names) override;
    Fcodes getTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, std::string& value,
                        const std::string& key) override;
    Fcodes setTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, const std::string& value,
                        const std::string& key) override;

    // What the communicator never asks.
    // clang-format off
    Fcodes getIntParam(In, int, In, int*) override { return FC_UNSUPPORTED; }
    Fcodes getNewIntParam(In, int, In, int*) override { return FC_UNSUPPORTED; }
    Fcodes getNewStringParam(In, int, In, std::string*) override { return FC_UNSUPPORTED; }
    Fcodes getParamState(In, int, In, unsigned&) override { return FC_UNSUPPORTED; }
    Fcodes getParamType(In, In, int&) override { return FC_UNSUPPORTED; }
    int getLastRowIndex(In) override { return 0; }
    int getRowsNum(In) override { return 0; }
    Fcodes getStringParam(In, int, In, std::string*) override { return FC_UNSUPPORTED; }
    Fcodes requestAddRow(In, In, int, int&, int, int) override { return FC_UNSUPPORTED; }
    Fcodes requestCommand(In, In, std::string&, int, int) override { return FC_UNSUPPORTED; }
    Fcodes requestNextRowId(In, In, int, int&, int, int) override { return FC_UNSUPPORTED; }
    Fcodes requestRemoteIntParam(In, In, int, In, int&) override { return FC_UNSUPPORTED; }
    Fcodes requestRemoteStringParam(In, In, int, In, std::string&) override { return FC_UNSUPPORTED; }
    Fcodes requestGetIntParam(In, In, In, In, int&, In) override { return FC_UNSUPPORTED; }
    Fcodes requestGetTextParam(In, In, In, In, std::string&, In) override { return FC_UNSUPPORTED; }
    Fcodes requestSetRemoteIntParam(In, In, int, In, int) override { return FC_UNSUPPORTED; }
    Fcodes requestSetRemoteStringParam(In, In, int, In, In) override { return FC_UNSUPPORTED; }
    Fcodes setIntParam(In, int, In, int) override { return FC_UNSUPPORTED; }
    Fcodes setStringParam(In, int, In, In) override { return FC_UNSUPPORTED; }
    Fcodes initIntParam(In, int, In, int) override { return FC_UNSUPPORTED; }
    Fcodes initStringParam(In, int, In, In) override { return FC_UNSUPPORTED; }
    Fcodes addColumnToTable(In, In, In, int, int) override { return FC_UNSUPPORTED; }
    void addDataSet(In, DataSet*) override {  }
    DataSet* getDataSet(In) const override { return {}; }
    DataSet* findDataSetWithTable(In) const override { return {}; }
    DataTable* findDataTable(In) override { return {}; }
    std::vector<std::string> getColumnNames(In) override { return {}; }
    Fcodes getDefValue(In, In, std::string&) override { return FC_UNSUPPORTED; }
    IDataSets* createDataSets() override { return {}; }
    // clang-format on

private:
    template <typename... Args>
    void record(const std::string& operation, const Args&... args);

    std::mutex mMutex; // guards mCalls
    Texts mCalls;
};
