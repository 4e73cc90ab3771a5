#pragma once

// Reads what one getParams() request asks for. The hooks that it calls may change the committed
// tree, so whatever was found before a hook is looked up again after it.

#include "IDataSets.h"
#include "store/ParamsRequest.h"

class ParamsReader : private ParamsRequest
{
public:
    /// `store` has the hooks, `documents` is its committed tree; the answer is built in `answer`.
    ParamsReader(IDataSets& store, const Json::Value& documents, const Json::Value& request,
                 Json::Value& answer);

    /// FC_OK, or the code of the last failure; what could be read is in the answer nevertheless.
    Fcodes run();

private:
    void dumpComponents();
    void dumpInstances(const std::string& component);
    void readComponent(const std::string& component, const Json::Value& wanted);
    void readRequested(const std::string& component, const Json::Value& element,
                       Json::ArrayIndex position, const Json::Value* properties);
    void readAllRows(const std::string& component, const Json::Value* properties);
    void readRow(const std::string& component, const RequestRow& row,
                 const Json::Value* properties);
    void readProperty(const std::string& component, const RequestRow& row,
                      const std::string& property, Json::Value& values);

    /// Checks "rows" or "properties"; false, with a line, when it is something else than an array.
    bool isArrayOrAbsent(const Json::Value* list, const char* complaint);
    const Json::Value* findValue(const std::string& component, const RequestRow& row,
                                 const std::string& property) const;
    void callEntryHook(const std::string& component, const RequestRow& row);
    void callValueHook(const std::string& component, const RequestRow& row,
                       const std::string& property);

    IDataSets& mStore;
    Json::Value& mAnswer;
    Fcodes mResult = FC_OK;
};
