#include "DataTable.h"

#include "DataSet.h"
#include "DbgLine.h"
#include "MessageText.h"

#include <algorithm>
#include <limits>

namespace
{

constexpr char kUnit[] = "DataTable";

} // namespace

int TableTraits::keyFromText(const std::string& id) { return textToInt(id); }

void TableTraits::assignKey(DataRow& row, int id)
{
    row.setId(id);
    row.clearKey();
}

void TableTraits::Log::enumValueReset(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceColumn: enum column=" << name
                      << " Set default instead of val=" << item.getStrVal();
}

void TableTraits::Log::intValueReset(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceColumn: int column=" << name
                      << " Set default instead of type=" << item.getType()
                      << " val=" << item.getStrVal();
}

void TableTraits::Log::valueKept(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceColumn: column=" << name << " Keep val=" << item.getStrVal();
}

void TableTraits::Log::columnChanged(const std::string& table, const DataColumn& column)
{
    DBG_LOG(SEV_WARN) << "update: table=" << table << " column=" << column.getName()
                      << " changed. Replacing...";
}

void TableTraits::Log::copyingRow(int id) { DBG_LOG(SEV_INFO) << "update: adding rowId=" << id; }

void TableTraits::Log::copyingValue(int id, const DataColumn& column, const DataItem& value)
{
    DBG_LOG(SEV_INFO) << "newRow: adding to rowId=" << id << " col=" << column.getName()
                      << " val=" << value.getIntVal() << " str=" << value.getStrVal();
}

void TableTraits::Log::nameMissing(const std::string& text)
{
    DBG_LOG(SEV_ERROR) << "initFromString: Not found Name in:" << text;
}

void TableTraits::Log::columnsMissing(const std::string& text)
{
    DBG_LOG(SEV_ERROR) << "initFromString: Not found Columns in:" << text;
}

void TableTraits::Log::badColumn(Fcodes code)
{
    DBG_LOG(SEV_ERROR) << "initFromString: error in column fcode=" << Hex{code};
}

void TableTraits::Log::badRow(int id, Fcodes code)
{
    DBG_LOG(SEV_ERROR) << "initFromString: error in row=" << id << " fcode" << Hex{code};
}

void TableTraits::Log::tooManyCells(std::size_t rows, std::size_t columns)
{
    DBG_LOG(SEV_ERROR) << "initFromString: too many cells, rows=" << rows << " columns=" << columns;
}

DataTable::~DataTable() { leaveDataSet(); }

std::shared_ptr<DataColumn> DataTable::removeColumns(const std::string& name)
{
    return removeColumn(name);
}

std::shared_ptr<DataColumn> DataTable::removeColumns(const DataColumn* column)
{
    return removeColumn(column);
}

DataColumn* DataTable::replaceColumn(const std::string& name, DataColumn* column)
{
    return exchangeAndHandOver(name, column);
}

std::vector<std::string> DataTable::getColumnNames() const
{
    const std::lock_guard guard(mMutex);
    return mColumns.names();
}

int DataTable::getColumnsNum() const
{
    const std::lock_guard guard(mMutex);
    return static_cast<int>(mColumns.size());
}

void DataTable::addColumnList(DataColumn* column)
{
    if (column != nullptr)
        addColumn(column->getName(), column);
}

std::shared_ptr<DataColumn> DataTable::removeColumnList(const DataColumn* column)
{
    return removeColumn(column);
}

int DataTable::getRowsNum() const
{
    const std::lock_guard guard(mMutex);
    return static_cast<int>(mRows.size());
}

int DataTable::getFirstRowIndex() const
{
    const std::lock_guard guard(mMutex);
    const auto first = firstUndeletedRow();
    return first == mRows.end() ? 0 : first->first;
}

int DataTable::getNextRowIndex(int id) const
{
    const std::lock_guard guard(mMutex);
    const auto here = mRows.find(id);
    if (here == mRows.end())
        return 0;
    // Kept on purpose: peers that ask for the next row count on one marked deleted being passed
    // over only when it has no other mark, unlike in getFirstRowIndex().
    const auto next = std::find_if(std::next(here), mRows.end(), [](const auto& entry) {
        return entry.second->getState() != STATE_DELETED;
    });
    return next == mRows.end() ? 0 : next->first;
}

int DataTable::getLastRowIndex() const
{
    const std::lock_guard guard(mMutex);
    const auto last = std::find_if(mRows.rbegin(), mRows.rend(), [](const auto& entry) {
        return entry.second->getState() == STATE_CLEAN;
    });
    return last == mRows.rend() ? 0 : last->first;
}

int DataTable::getAvailableRowId() const
{
    const std::lock_guard guard(mMutex);
    // Without gaps there is nothing to search: adding many rows stays linear.
    const int next = getRowsNum() + 1;
    if (mRows.empty() || (mRows.begin()->first == 1 && mRows.rbegin()->first == next - 1))
        return next;
    int id = 1;
    for (auto row = mRows.lower_bound(id); row != mRows.end() && row->first == id; ++row)
        ++id;
    return id;
}

int DataTable::newRow()
{
    const std::lock_guard guard(mMutex);
    const int id = getAvailableRowId();
    newRow(id, nullptr, false);
    return id;
}

DataRow* DataTable::newRow(int id, const DataRow* templateRow, bool reuse)
{
    return makeRow(id, templateRow, reuse);
}

int DataTable::appendNewRow()
{
    const std::lock_guard guard(mMutex);
    const int highest = mRows.empty() ? 0 : mRows.rbegin()->first;
    // A text may have claimed the highest id there is, or one below the first.
    if (highest == std::numeric_limits<int>::max())
        return newRow();
    const int id = std::max(highest, 0) + 1;
    newRow(id, nullptr, false);
    return id;
}

void DataTable::update(const DataTable& reference, bool keepColumns, bool mergeColumns,
                       bool copyRows, bool reuse)
{
    merge(reference, keepColumns, mergeColumns, copyRows, reuse);
}

DataSet* DataTable::getDataSet() const
{
    const std::lock_guard guard(mMutex);
    return mDataSet;
}

void DataTable::setDataSet(DataSet* set)
{
    const std::lock_guard guard(mMutex);
    mDataSet = set;
}

void DataTable::leaveDataSet()
{
    if (mDataSet != nullptr)
        mDataSet->releaseTable(*this);
}
