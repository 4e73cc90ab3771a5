#pragma once

// The application's main object as the communicator and the library see it; DataHolder implements
// all but doHandle() and describes each operation: ranges, failures, ownership, threads. The
// communicator calls, on its responder thread: execute, handle, the four row operations of the
// commands "Add Row" and "Get Next Row", rollbackChanges, and the data requests near the end. The
// typed operations of the store that nobody needs through this interface are declared on
// DataHolder.

#include "Fcodes.h"

#include <cstddef>
#include <string>
#include <vector>

class DataSet;
class DataTable;
class IDataSets;
class MessageEvent;

class IDataHolder
{
public:
    /// The start, the end of a change that is to last, and the removal of a row at once.
    virtual void init(const std::string& name) = 0;
    virtual Fcodes acceptChanges() = 0;
    virtual Fcodes deleteRow(const std::string& table, int rowId) = 0;

    /// Carry out one queued command or event on the holder's worker thread. Results are dropped.
    /// The event is never null and belongs to the worker, which deletes it afterwards.
    virtual Fcodes doExecute(const std::string& command, std::string& result) = 0;
    virtual Fcodes doHandle(MessageEvent* event) = 0;

    /// Takes a command (its element text) from a peer. The answer carries the code that comes back,
    /// and in its body the text in `result`.
    virtual Fcodes execute(const std::string& command, std::string& result) = 0;

    /// Cells and rows of a table. Row ids start at 1; 0 says that there is no such row or table.
    /// `value` is never null and untouched on failure.
    virtual Fcodes getIntParam(const std::string& table, int rowId, const std::string& item,
                               int* value) = 0;
    virtual Fcodes getNewIntParam(const std::string& table, int rowId, const std::string& item,
                                  int* value) = 0;
    virtual Fcodes getNewStringParam(const std::string& table, int rowId, const std::string& item,
                                     std::string* value) = 0;
    virtual Fcodes getParamState(const std::string& table, int rowId, const std::string& item,
                                 unsigned& state) = 0;
    virtual Fcodes getParamType(const std::string& table, const std::string& column, int& type) = 0;
    virtual int getFirstRowIndex(const std::string& table) = 0;
    virtual int getNextRowIndex(const std::string& table, int rowId) = 0;
    virtual int getLastRowIndex(const std::string& table) = 0;
    virtual int getRowsNum(const std::string& table) = 0;
    virtual Fcodes getStringParam(const std::string& table, int rowId, const std::string& item,
                                  std::string* value) = 0;

    /// Takes an event from a peer, made with `new`; never null. The holder owns it from here on.
    virtual Fcodes handle(MessageEvent* event) = 0;

    /// The row's id; newRow() takes any id but 0, which stands for the first free one, and returns
    /// that of a row that exists.
    virtual int newRow(const std::string& table, int rowId) = 0;
    virtual int appendNewRow(const std::string& table) = 0;

    /// Requests to peers, on the calling thread.
    virtual Fcodes requestAddRow(const std::string& target, const std::string& table, int rowId,
                                 int& newRowId, unsigned timeout, unsigned tries) = 0;
    virtual Fcodes requestCommand(const std::string& target, const std::string& command,
                                  std::string& result, unsigned timeout, unsigned tries) = 0;
    virtual Fcodes requestNextRowId(const std::string& target, const std::string& table, int rowId,
                                    int& nextRowId, unsigned timeout, unsigned tries) = 0;
    virtual Fcodes requestRemoteIntParam(const std::string& target, const std::string& table,
                                         int rowId, const std::string& item, int& value) = 0;
    virtual Fcodes requestRemoteStringParam(const std::string& target, const std::string& table,
                                            int rowId, const std::string& item,
                                            std::string& value) = 0;
    virtual Fcodes requestGetIntParam(const std::string& target, const std::string& dataset,
                                      const std::string& component, const std::string& property,
                                      int& value, const std::string& key) = 0;
    virtual Fcodes requestGetTextParam(const std::string& target, const std::string& dataset,
                                       const std::string& component, const std::string& property,
                                       std::string& value, const std::string& key) = 0;
    virtual Fcodes requestSetRemoteIntParam(const std::string& target, const std::string& table,
                                            int rowId, const std::string& item, int value) = 0;
    virtual Fcodes requestSetRemoteStringParam(const std::string& target, const std::string& table,
                                               int rowId, const std::string& item,
                                               const std::string& value) = 0;

    virtual Fcodes rollbackChanges() = 0;

    virtual Fcodes setIntParam(const std::string& table, int rowId, const std::string& item,
                               int value) = 0;
    virtual Fcodes setStringParam(const std::string& table, int rowId, const std::string& item,
                                  const std::string& value) = 0;
    virtual Fcodes initIntParam(const std::string& table, int rowId, const std::string& item,
                                int value) = 0;
    virtual Fcodes initStringParam(const std::string& table, int rowId, const std::string& item,
                                   const std::string& value) = 0;

    /// Data sets of tables, and where tables and components are found.
    virtual Fcodes addColumnToTable(const std::string& dataSet, const std::string& table,
                                    const std::string& column, int type, int defaultValue) = 0;
    virtual void addDataSet(std::string name, DataSet* dataSet) = 0;
    virtual DataSet* getDataSet(std::string name) = 0;
    virtual DataSet* findDataSetWithTable(const std::string& table) = 0;
    virtual DataTable* findDataTable(const std::string& table) = 0;
    virtual std::vector<std::string> getColumnNames(const std::string& table) = 0;
    virtual Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) = 0;

    /// Data requests. `key` names the instance; the empty key is a component's single instance.
    virtual Fcodes getProperties(const std::string& dataset, const std::string& component,
                                 std::vector<std::string>& names) = 0;
    virtual Fcodes getInstances(const std::string& dataset, const std::string& component,
                                std::vector<std::string>& names) = 0;
    virtual Fcodes getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value,
                                const std::string& key) = 0;
    virtual Fcodes setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value,
                                const std::string& key) = 0;

    virtual ~IDataHolder() = default; // its place in the order of the operations

    virtual Fcodes getDefValue(const std::string& table, const std::string& column,
                               std::string& text) = 0;

    /// Makes the holder's store: a new one that the holder owns, or null.
    virtual IDataSets* createDataSets() = 0;

    /// getInstances() for an answer of limited length: once the names listed, each with `perName`
    /// bytes more, exceed `limit` bytes together, the others may be missing.
    Fcodes listInstances(const std::string& dataset, const std::string& component,
                         std::vector<std::string>& names, std::size_t perName, std::size_t limit)
    {
        return doListInstances(dataset, component, names, perName, limit);
    }

private:
    // Last, so that the operations keep their places in the virtual table. To list all is right
    // for every holder; one of many instances may do better.
    virtual Fcodes doListInstances(const std::string& dataset, const std::string& component,
                                   std::vector<std::string>& names, std::size_t /*perName*/,
                                   std::size_t /*limit*/)
    {
        return getInstances(dataset, component, names);
    }
};
