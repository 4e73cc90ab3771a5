#include "DataSet.h"

#include "DbgLine.h"
#include "MessageText.h"
#include "base/AtomicFile.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"
#include "table/TableCell.h"

#include <cerrno>
#include <mutex>
#include <set>

namespace
{

constexpr char kUnit[] = "DataSet";
constexpr std::size_t npos = std::string::npos;

/// An attribute ends at the first quote, an element at the first ">"; and a start tag with a blank
/// is found before the bare "<Columns>" of a table, wherever it stands.
bool isReadable(const std::string& text)
{
    return text.find_first_of("\">") == npos && text.find("<Columns ") == npos;
}

/// What stands before the rows of a table, or before a table, must not look like one.
bool isReadableName(const std::string& text)
{
    return isReadable(text) && text.find("<Row ") == npos && text.find("<Table ") == npos;
}

bool isReadable(const DataColumn& column)
{
    std::string text;
    DataColumn copy;
    return isReadableName(column.getName()) &&
           copy.initFromString(column.toString(text)) == FC_OK && copy.isEqualTo(column) &&
           text.find("<Row ") == npos && text.find("<Columns ") == npos;
}

using Columns = std::set<const DataColumn*>;

/// `columns` are the table's: a look-up by name for each cell would cost more than writing it.
bool isReadable(const DataItem& item, const DataTable& table, const Columns& columns)
{
    const DataColumn* const column =
        columns.contains(item.getColumn()) ? item.getColumn() : table.getColumns(item.getId());
    if (column == nullptr || !isReadable(item.getStrVal()))
        return false;
    int index = 0;
    if (column->getType() != DataColumn::ENUM || column->getValueIndex(item.getStrVal(), index))
        return true;
    std::string valueOfNewItem;
    column->getValueText(column->getDefVal(), valueOfNewItem);
    return item.getStrVal() == valueOfNewItem;
}

bool isReadable(const DataRow& row, const DataTable& table, const Columns& columns)
{
    for (auto it = row.getDataItemListBegin(); it != row.getDataItemListEnd(); ++it) {
        if (isReadable(**it, table, columns))
            continue;
        DBG_LOG(SEV_ERROR) << "store: Can't be read back: table=" << table.getId()
                           << " row=" << row.getId() << " item=" << (*it)->getId()
                           << " value=" << (*it)->getStrVal();
        return false;
    }
    return true;
}

/// Logs the first part of the table that its text does not carry.
void logUnreadablePart(const DataTable& table)
{
    const std::lock_guard guard(table);
    if (!isReadableName(table.getId())) {
        DBG_LOG(SEV_ERROR) << "store: Can't be read back: table=" << table.getId();
        return;
    }
    for (auto it = table.getColumnListBegin(); it != table.getColumnListEnd(); ++it) {
        if (isReadable(**it))
            continue;
        DBG_LOG(SEV_ERROR) << "store: Can't be read back: table=" << table.getId()
                           << " column=" << (*it)->getName();
        return;
    }
    const Columns columns(table.getColumnListBegin(), table.getColumnListEnd());
    for (auto row = table.getRowsBegin(); row != table.getRowsEnd(); ++row)
        if (!isReadable(*row->second, table, columns))
            return;
}

} // namespace

DataSet::DataSet() = default;

DataSet::DataSet(const std::string& id) : mId(id) {}

DataSet::~DataSet() { clearTable(); }

// The cycle

Fcodes DataSet::acceptChanges()
{
    // Cleared first: a change that another thread makes during this must leave its mark.
    mState = STATE_CLEAN;
    Fcodes result = FC_OK;
    for (const auto& [name, entry] : mTables)
        result |= entry.table->acceptChanges();
    return result;
}

Fcodes DataSet::rollbackChanges()
{
    DBG_LOG(SEV_INFO) << "rollbackChanges: executing...";
    mState = STATE_CLEAN;
    Fcodes result = FC_OK;
    for (const auto& [name, entry] : mTables)
        result |= entry.table->rollbackChanges();
    return result;
}

Fcodes DataSet::touch()
{
    Fcodes result = FC_OK;
    for (const auto& [name, entry] : mTables)
        result |= entry.table->touch();
    mState = STATE_MODIFIED;
    return result;
}

Fcodes DataSet::untouch()
{
    Fcodes result = FC_OK;
    for (const auto& [name, entry] : mTables)
        result |= entry.table->untouch();
    mState = STATE_CLEAN;
    return result;
}

Fcodes DataSet::touch(const std::string& table)
{
    if (DataTable* found = getTable(table)) {
        found->touch();
        mState = STATE_MODIFIED;
    }
    return FC_OK;
}

Fcodes DataSet::untouch(const std::string& table)
{
    if (DataTable* found = getTable(table)) {
        found->untouch();
        mState = STATE_CLEAN;
    }
    return FC_OK;
}

// Text and file

std::string& DataSet::toString(std::string& out) const
{
    out.assign("<DataSet ID=\"").append(mId);
    out.append("\" Version=\"").append(mVersion).append("\">\n");
    std::string element;
    for (const auto& [name, entry] : mTables)
        out.append(entry.table->toString(element));
    return out.append("</DataSet>\n");
}

Fcodes DataSet::initFromString(const std::string& text)
{
    if (getPropertyValue(text, 0, "ID", mId) == npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not found ID in:" << text;
        return FC_BODY_ERROR;
    }
    if (getPropertyValue(text, 0, "Version", mVersion) == npos)
        mVersion = "0";

    Fcodes result = FC_OK;
    SegmentIterator tables(text, "Table");
    std::string_view segment;
    while (tables.next(segment)) {
        auto table = std::make_unique<DataTable>();
        const Fcodes tableResult = table->initFromString(std::string(segment));
        if (tableResult == FC_OK)
            addTableList(table.release());
        else
            DBG_LOG(SEV_ERROR) << "initFromString: Error in initializing table fcode="
                               << Hex{tableResult};
        result |= tableResult;
    }
    return result;
}

Fcodes DataSet::load(const std::string& file)
{
    std::string text;
    const Descriptor opened(openRegularFile(file));
    if (!opened.isOpen() && errno != EISDIR) { // a directory reads as empty
        DBG_LOG(SEV_ERROR) << "load: file stream !good";
        return FC_NO_SUCH_NAME;
    }
    readToEnd(opened.get(), text);
    if (text.empty()) {
        DBG_LOG(SEV_ERROR) << "load: file stream size==0 file=" << file;
        return FC_UNAVAILABLE;
    }

    cleanUpRelations();
    Fcodes result = initFromString(text);
    if (result == FC_OK) {
        result |= acceptChanges();
        if (result != FC_OK)
            DBG_LOG(SEV_ERROR) << "load: After acceptChanges() fcode=" << Hex{result};
    }
    return result;
}

Fcodes DataSet::store(const std::string& file) const
{
    // Taken after the tables' locks and for the write alone: a caller may hold one of those.
    static std::mutex fileMutex;
    std::string text;
    toString(text);
    if (!isReadableName(mId) || !isReadableName(mVersion))
        DBG_LOG(SEV_ERROR) << "store: Can't be read back: dataset=" << mId
                           << " version=" << mVersion;
    for (const auto& [name, entry] : mTables)
        logUnreadablePart(*entry.table);
    const std::lock_guard guard(fileMutex);
    const auto [error, inPlace] =
        replaceFileAtomically(file, [&](std::ostream& out) { out << text; });
    if (inPlace != 0)
        DBG_LOG(SEV_ERROR) << "store: Written in place file=" << file << " errno=" << inPlace;
    if (error != 0)
        DBG_LOG(SEV_ERROR) << "store: Couldn't write file=" << file << " errno=" << error;
    // Kept on purpose: callers count on no write error in the result.
    DBG_LOG(SEV_INFO) << "store: stored in file=" << file;
    return FC_OK;
}

// Tables

DataTable* DataSet::getTable(const std::string& name) const
{
    const auto found = mTables.find(name);
    return found == mTables.end() ? nullptr : found->second.table.get();
}

void DataSet::addTable(const std::string& name, DataTable* table)
{
    if (table == nullptr)
        return;
    table->leaveDataSet();
    removeTable(name);
    const auto position = mTableList.insert(mTableList.end(), table);
    mTables[name] = {std::unique_ptr<DataTable>(table), position};
    table->setDataSet(this);
}

std::unique_ptr<DataTable> DataSet::removeTable(const std::string& name)
{
    const auto place = mTables.find(name);
    return place == mTables.end() ? nullptr : takeTable(place);
}

std::unique_ptr<DataTable> DataSet::removeTable(const DataTable* table)
{
    for (auto place = mTables.begin(); place != mTables.end(); ++place)
        if (place->second.table.get() == table)
            return takeTable(place);
    return nullptr;
}

void DataSet::clearTable()
{
    while (!mTables.empty())
        takeTable(mTables.begin());
}

void DataSet::addTableList(DataTable* table)
{
    if (table != nullptr)
        addTable(table->getId(), table);
}

std::unique_ptr<DataTable> DataSet::removeTableList(const DataTable* table)
{
    return removeTable(table);
}

void DataSet::releaseTable(DataTable& table) { removeTable(&table).release(); }

std::unique_ptr<DataTable> DataSet::takeTable(TableMap::iterator place)
{
    auto table = std::move(place->second.table);
    table->setDataSet(nullptr);
    mTableList.erase(place->second.listPosition);
    mTables.erase(place);
    return table;
}

// Cells and rows

Fcodes DataSet::getIntParam(const std::string& table, int rowId, const std::string& item,
                            int* value) const
{
    const auto read = [value](const DataItem& cell) { *value = cell.getIntVal(); };
    switch (visitCell(getTable(table), rowId, item, read)) {
    case CellLookupResult::NO_TABLE:
        DBG_LOG(SEV_ERROR) << "getIntParam: No such table=" << table;
        return FC_NO_SUCH_NAME;
    case CellLookupResult::NO_ROW:
        DBG_LOG(SEV_ERROR) << "getIntParam: No such rowId=" << rowId << " in table=" << table;
        return FC_NO_SUCH_NAME;
    case CellLookupResult::NO_ITEM:
        DBG_LOG(SEV_ERROR) << "getIntParam: No such item=" << item << " in rowId=" << rowId
                           << " in table=" << table;
        return FC_NO_SUCH_NAME;
    case CellLookupResult::FOUND:
        break;
    }
    return FC_OK;
}

Fcodes DataSet::getStringParam(const std::string& table, int rowId, const std::string& item,
                               std::string* value) const
{
    const auto read = [value](const DataItem& cell) { *value = cell.getStrVal(); };
    switch (visitCell(getTable(table), rowId, item, read)) {
    case CellLookupResult::NO_TABLE:
        DBG_LOG(SEV_ERROR) << "getStringParam: No such table=" << table;
        return FC_NO_SUCH_NAME;
    case CellLookupResult::NO_ROW:
        DBG_LOG(SEV_ERROR) << "getStringParam: No such rowId=" << rowId << " in table=" << table;
        return FC_NO_SUCH_NAME;
    case CellLookupResult::NO_ITEM:
        DBG_LOG(SEV_ERROR) << "getStringParam: No such item=" << item << " in rowId=" << rowId
                           << " in table=" << table;
        return FC_NO_SUCH_NAME;
    case CellLookupResult::FOUND:
        break;
    }
    return FC_OK;
}

int DataSet::getFirstRowIndex(const std::string& table) const
{
    const DataTable* found = getTable(table);
    return found == nullptr ? 0 : found->getFirstRowIndex();
}

int DataSet::getNextRowIndex(const std::string& table, int rowId) const
{
    const DataTable* found = getTable(table);
    return found == nullptr ? 0 : found->getNextRowIndex(rowId);
}

// Merging

Fcodes DataSet::update(const DataSet& reference, bool keepTables, bool addTables, bool keepColumns,
                       bool mergeColumns, bool copyRows, bool reuse)
{
    Fcodes result = FC_OK;
    for (const auto& [name, entry] : reference.mTables) {
        if (DataTable* mine = getTable(name))
            mine->update(*entry.table, keepColumns, mergeColumns, copyRows, reuse);
        else if (addTables)
            result |= addCopy(name, *entry.table);
    }
    if (!keepTables)
        dropTablesAbsentFrom(reference);
    return result;
}

Fcodes DataSet::addCopy(const std::string& name, DataTable& table)
{
    std::string text;
    auto copy = std::make_unique<DataTable>();
    const Fcodes result = copy->initFromString(table.toString(text));
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << "update: Error in initializing table fcode=" << Hex{result};
        return result;
    }
    addTable(name, copy.release());
    setState(STATE_MODIFIED);
    return result;
}

void DataSet::dropTablesAbsentFrom(const DataSet& reference)
{
    for (auto next = mTables.begin(); next != mTables.end();) {
        const auto place = next++;
        if (reference.getTable(place->first) != nullptr)
            continue;
        takeTable(place);
        setState(STATE_MODIFIED);
    }
}
