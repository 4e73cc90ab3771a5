// The part of DataHolder that works on cells and rows: those of its registered data sets, and by
// request those of peers.

#include "DataHolder.h"

#include "DataSet.h"
#include "DbgLine.h"
#include "MessageCommand.h"
#include "MessageText.h"
#include "table/TableCell.h"

#include <mutex>

namespace
{

constexpr char kUnit[] = "DataHolder";

constexpr int kRequestTimeout = 10; // seconds
constexpr int kRequestTries = 3;

} // namespace

/// The log texts of an operation on a cell, by what is missing; null: not logged.
struct DataHolder::CellLogTexts {
    const char* noTable = nullptr;
    const char* noRow = nullptr;
    const char* noItem = nullptr;
};

// Changes and look-up

Fcodes DataHolder::acceptChanges()
{
    Fcodes result = FC_OK;
    for (const auto& [name, dataSet] : mDataSets)
        result |= dataSet->acceptChanges();
    return result;
}

Fcodes DataHolder::rollbackChanges()
{
    // Kept on purpose: peers count on a failed SET rolling back tables only; what is pending in the
    // store stays until its own rollback().
    for (const auto& [name, dataSet] : mDataSets)
        dataSet->rollbackChanges();
    return FC_OK;
}

void DataHolder::addDataSet(std::string name, DataSet* dataSet)
{
    if (dataSet != nullptr)
        mDataSets[std::move(name)] = dataSet;
}

DataSet* DataHolder::getDataSet(std::string name)
{
    const auto found = mDataSets.find(name);
    return found == mDataSets.end() ? nullptr : found->second;
}

DataTable* DataHolder::findDataTable(const std::string& table)
{
    const DataSet* const holds = findDataSetWithTable(table);
    return holds == nullptr ? nullptr : holds->getTable(table);
}

DataSet* DataHolder::findDataSetWithTable(const std::string& table)
{
    for (const auto& [name, dataSet] : mDataSets)
        if (dataSet->getTable(table) != nullptr)
            return dataSet;
    return nullptr;
}

// Columns

std::vector<std::string> DataHolder::getColumnNames(const std::string& table)
{
    const DataTable* const found = findDataTable(table);
    return found == nullptr ? std::vector<std::string>() : found->getColumnNames();
}

Fcodes DataHolder::getDefValue(const std::string& table, const std::string& column,
                               std::string& text)
{
    const DataTable* const dataTable = findDataTable(table);
    if (dataTable == nullptr) {
        DBG_LOG(SEV_ERROR) << "getDefValue: No such table=" << table;
        return FC_NO_SUCH_NAME;
    }
    const std::lock_guard guard(*dataTable);
    const DataColumn* const dataColumn = dataTable->getColumns(column);
    if (dataColumn == nullptr) {
        DBG_LOG(SEV_ERROR) << "getDefValue: No such colId=" << column;
        return FC_NO_SUCH_NAME;
    }
    text = std::to_string(dataColumn->getDefVal());
    return FC_OK;
}

Fcodes DataHolder::getParamType(const std::string& table, const std::string& column, int& type)
{
    const DataTable* const dataTable = findDataTable(table);
    if (dataTable == nullptr)
        return FC_NO_SUCH_NAME;
    const std::lock_guard guard(*dataTable);
    const DataColumn* const dataColumn = dataTable->getColumns(column);
    if (dataColumn == nullptr)
        return FC_NO_SUCH_NAME;
    type = dataColumn->getType();
    return FC_OK;
}

Fcodes DataHolder::addColumnToTable(const std::string& /*dataSet*/, const std::string& /*table*/,
                                    const std::string& /*column*/, int /*type*/,
                                    int /*defaultValue*/)
{
    // Kept on purpose: older applications count on the answer OK and on no table being touched.
    return FC_OK;
}

// Cells

template <typename Work>
Fcodes DataHolder::withItem(const CellLogTexts& texts, const std::string& table, int rowId,
                            const std::string& item, Work work)
{
    Fcodes result = FC_NO_SUCH_NAME;
    const CellLookupResult lookup =
        visitCell(findDataTable(table), rowId, item, [&](DataItem& cell) { result = work(cell); });
    if (lookup == CellLookupResult::NO_TABLE && texts.noTable != nullptr)
        DBG_LOG(SEV_ERROR) << texts.noTable << table;
    if (lookup == CellLookupResult::NO_ROW && texts.noRow != nullptr)
        DBG_LOG(SEV_ERROR) << texts.noRow << rowId << " in table=" << table;
    if (lookup == CellLookupResult::NO_ITEM && texts.noItem != nullptr)
        DBG_LOG(SEV_ERROR) << texts.noItem << item << " in rowId=" << rowId
                           << " in table=" << table;
    return result;
}

Fcodes DataHolder::getIntParam(const std::string& table, int rowId, const std::string& item,
                               int* value)
{
    return withItem({"getIntParam: No such table=", "getIntParam: No such rowId=",
                     "getIntParam: No such item="},
                    table, rowId, item, [&](DataItem& cell) {
                        *value = cell.getIntVal();
                        return FC_OK;
                    });
}

Fcodes DataHolder::getNewIntParam(const std::string& table, int rowId, const std::string& item,
                                  int* value)
{
    return withItem({"getNewIntParam: No such table=", "getNewIntParam: No such rowId=",
                     "getNewIntParam: No such item="},
                    table, rowId, item, [&](DataItem& cell) {
                        *value = cell.getIntVal_copy();
                        return FC_OK;
                    });
}

Fcodes DataHolder::getStringParam(const std::string& table, int rowId, const std::string& item,
                                  std::string* value)
{
    return withItem({"getStringParam: No such table=", "getStringParam: No such rowId=",
                     "getStringParam: No such item="},
                    table, rowId, item, [&](DataItem& cell) {
                        *value = cell.getStrVal();
                        return FC_OK;
                    });
}

Fcodes DataHolder::getNewStringParam(const std::string& table, int rowId, const std::string& item,
                                     std::string* value)
{
    return withItem({"getNewStringParam: No such table=", "getNewStringParam: No such rowId=",
                     "getNewStringParam: No such item="},
                    table, rowId, item, [&](DataItem& cell) {
                        *value = cell.getStrVal_copy();
                        return FC_OK;
                    });
}

Fcodes DataHolder::setIntParam(const std::string& table, int rowId, const std::string& item,
                               int value)
{
    // Kept on purpose: log readers count on the texts of getStringParam here, and on a missing item
    // not being logged at all.
    return withItem({"getStringParam: No such table=", "getStringParam: No such rowId=", nullptr},
                    table, rowId, item, [&](DataItem& cell) { return cell.setValue(value); });
}

Fcodes DataHolder::setStringParam(const std::string& table, int rowId, const std::string& item,
                                  const std::string& value)
{
    return withItem({}, table, rowId, item, [&](DataItem& cell) { return cell.setValue(value); });
}

Fcodes DataHolder::initIntParam(const std::string& table, int rowId, const std::string& item,
                                int value)
{
    return withItem({}, table, rowId, item, [&](DataItem& cell) { return cell.initValue(value); });
}

Fcodes DataHolder::initStringParam(const std::string& table, int rowId, const std::string& item,
                                   const std::string& value)
{
    return withItem({}, table, rowId, item, [&](DataItem& cell) { return cell.initValue(value); });
}

Fcodes DataHolder::getParamState(const std::string& table, int rowId, const std::string& item,
                                 unsigned& state)
{
    return withItem({}, table, rowId, item, [&](DataItem& cell) {
        state = cell.getState();
        return FC_OK;
    });
}

// Rows

template <typename Work>
int DataHolder::withTable(const std::string& table, Work work)
{
    DataTable* const found = findDataTable(table);
    return found == nullptr ? 0 : work(*found);
}

int DataHolder::getFirstRowIndex(const std::string& table)
{
    return withTable(table, [](DataTable& rows) { return rows.getFirstRowIndex(); });
}

int DataHolder::getNextRowIndex(const std::string& table, int rowId)
{
    return withTable(table, [rowId](DataTable& rows) { return rows.getNextRowIndex(rowId); });
}

int DataHolder::getLastRowIndex(const std::string& table)
{
    return withTable(table, [](DataTable& rows) { return rows.getLastRowIndex(); });
}

int DataHolder::getRowsNum(const std::string& table)
{
    return withTable(table, [](DataTable& rows) { return rows.getRowsNum(); });
}

int DataHolder::newRow(const std::string& table, int rowId)
{
    return withTable(table, [rowId](DataTable& rows) {
        if (rowId == 0)
            return rows.newRow();
        const std::lock_guard guard(rows);
        return rows.newRow(rowId, nullptr, false)->getId();
    });
}

int DataHolder::appendNewRow(const std::string& table)
{
    return withTable(table, [](DataTable& rows) { return rows.appendNewRow(); });
}

Fcodes DataHolder::deleteRow(const std::string& table, int rowId)
{
    DataTable* const found = findDataTable(table);
    if (found == nullptr)
        return FC_NO_SUCH_NAME;
    return FC_OK | (rowId == 0 ? found->doDeleteAllRows() : found->doDeleteRow(rowId));
}

// Requests to peers

Fcodes DataHolder::requestRemoteStringParam(const std::string& target, const std::string& table,
                                            int rowId, const std::string& item, std::string& value)
{
    return mCommunicator.requestDataItem(target, table, rowId, item, value, kRequestTimeout,
                                         kRequestTries);
}

Fcodes DataHolder::requestRemoteIntParam(const std::string& target, const std::string& table,
                                         int rowId, const std::string& item, int& value)
{
    std::string text;
    const Fcodes result = requestRemoteStringParam(target, table, rowId, item, text);
    if (result == FC_OK)
        value = textToInt(text);
    return result;
}

Fcodes DataHolder::requestSetRemoteStringParam(const std::string& target, const std::string& table,
                                               int rowId, const std::string& item,
                                               const std::string& value)
{
    return mCommunicator.requestSetDataItem(target, table, rowId, item, value, kRequestTimeout,
                                            kRequestTries);
}

Fcodes DataHolder::requestSetRemoteIntParam(const std::string& target, const std::string& table,
                                            int rowId, const std::string& item, int value)
{
    return requestSetRemoteStringParam(target, table, rowId, item, std::to_string(value));
}

Fcodes DataHolder::requestGetTextParam(const std::string& target, const std::string& dataset,
                                       const std::string& component, const std::string& property,
                                       std::string& value, const std::string& key)
{
    return mCommunicator.requestGetParam(target, dataset, component, key, property, value,
                                         kRequestTimeout, kRequestTries);
}

Fcodes DataHolder::requestGetIntParam(const std::string& target, const std::string& dataset,
                                      const std::string& component, const std::string& property,
                                      int& value, const std::string& key)
{
    std::string text;
    const Fcodes result = requestGetTextParam(target, dataset, component, property, text, key);
    if (result == FC_OK)
        value = textToInt(text);
    return result;
}

Fcodes DataHolder::requestAddRow(const std::string& target, const std::string& table, int rowId,
                                 int& newRowId, unsigned timeout, unsigned tries)
{
    return requestRow(kCommandAddRow, target, table, rowId, newRowId, timeout, tries);
}

Fcodes DataHolder::requestNextRowId(const std::string& target, const std::string& table, int rowId,
                                    int& nextRowId, unsigned timeout, unsigned tries)
{
    return requestRow(kCommandGetNextRow, target, table, rowId, nextRowId, timeout, tries);
}

Fcodes DataHolder::requestRow(const char* command, const std::string& target,
                              const std::string& table, int rowId, int& answeredRow,
                              unsigned timeout, unsigned tries)
{
    MessageCommand request;
    request.setId(command);
    // Kept on purpose: peers count on "Tables" being sent, although responders look for "Table".
    request.addParam("Tables", table);
    request.addParam("Row", std::to_string(rowId));
    std::string text;
    std::string response;
    Fcodes result = requestCommand(target, request.toString(text), response, timeout, tries);
    std::string element;
    if (result != FC_OK || getSegment(response, 0, "Command", element) == std::string::npos)
        return result;

    MessageCommand answer;
    result = FC_OK | answer.initFromString(element);
    std::string row;
    if (result == FC_OK && answer.getParam("Row", row))
        answeredRow = textToInt(row);
    return result;
}
