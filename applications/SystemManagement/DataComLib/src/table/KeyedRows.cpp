#include "table/KeyedRows.h"

#include "DataObject.h"
#include "DataSet.h"
#include "DataTable.h"
#include "MessageText.h"

#include <algorithm>

// State and cycle

template <typename Traits>
unsigned KeyedRows<Traits>::getState() const
{
    const std::lock_guard guard(mMutex);
    return mState;
}

template <typename Traits>
void KeyedRows<Traits>::setState(unsigned bits)
{
    const std::lock_guard guard(mMutex);
    mState = bits;
    if (mState != STATE_CLEAN && mDataSet != nullptr)
        mDataSet->setState(STATE_MODIFIED);
}

template <typename Traits>
void KeyedRows<Traits>::addState(unsigned bits)
{
    const std::lock_guard guard(mMutex);
    setState(mState | bits);
}

template <typename Traits>
Fcodes KeyedRows<Traits>::acceptChanges()
{
    const std::lock_guard guard(mMutex);
    Fcodes result = FC_OK;
    // After a removal the walk goes on from where it is: all rows before it are clean by now, and
    // passing over them again would make a large deletion quadratic.
    for (auto place = mRows.begin(); place != mRows.end();) {
        DataRow& row = *place->second;
        if ((row.getState() & STATE_DELETED) != 0) {
            place = takeRow(place).second;
            continue;
        }
        if ((row.getState() & (STATE_MODIFIED | STATE_ADDED)) != 0)
            result |= row.acceptChanges();
        ++place;
    }
    mState = STATE_CLEAN;
    return result;
}

template <typename Traits>
Fcodes KeyedRows<Traits>::rollbackChanges()
{
    const std::lock_guard guard(mMutex);
    Fcodes result = FC_OK;
    for (auto place = mRows.begin(); place != mRows.end();) {
        DataRow& row = *place->second;
        // Kept on purpose: applications count on a new row staying once a value of it has been
        // set, or once it has been marked deleted; only its marks are cleared.
        if ((row.getState() & (STATE_MODIFIED | STATE_DELETED)) != 0) {
            result |= row.rollbackChanges();
        } else if ((row.getState() & STATE_ADDED) != 0) {
            place = takeRow(place).second;
            continue;
        }
        ++place;
    }
    mState = STATE_CLEAN;
    return result;
}

template <typename Traits>
Fcodes KeyedRows<Traits>::touch()
{
    const std::lock_guard guard(mMutex);
    Fcodes result = FC_OK;
    for (const auto& [key, row] : mRows)
        result |= row->touch();
    setState(STATE_MODIFIED);
    return result;
}

template <typename Traits>
Fcodes KeyedRows<Traits>::untouch()
{
    const std::lock_guard guard(mMutex);
    Fcodes result = FC_OK;
    for (const auto& [key, row] : mRows)
        result |= row->untouch();
    mState = STATE_CLEAN;
    return result;
}

template <typename Traits>
std::string KeyedRows<Traits>::name() const
{
    const std::lock_guard guard(mMutex);
    return mName;
}

template <typename Traits>
void KeyedRows<Traits>::rename(const std::string& name)
{
    const std::lock_guard guard(mMutex);
    mName = name;
}

template <typename Traits>
void KeyedRows<Traits>::clear()
{
    const std::lock_guard guard(mMutex);
    destroyAllRows();
    mColumns.clear();
}

// Columns

template <typename Traits>
DataColumn* KeyedRows<Traits>::findColumn(const std::string& name) const
{
    const std::lock_guard guard(mMutex);
    return mColumns.get(name);
}

template <typename Traits>
void KeyedRows<Traits>::addColumn(const std::string& name, DataColumn* column)
{
    const std::lock_guard guard(mMutex);
    mColumns.add(name, column);
}

template <typename Traits>
std::shared_ptr<DataColumn> KeyedRows<Traits>::removeColumn(const std::string& name)
{
    const std::lock_guard guard(mMutex);
    auto column = mColumns.take(name);
    // A cell without a column would be written, and then make the text unreadable.
    if (column)
        for (const auto& [key, row] : mRows)
            row->removeDataItem(name);
    return column;
}

template <typename Traits>
std::shared_ptr<DataColumn> KeyedRows<Traits>::removeColumn(const DataColumn* column)
{
    const std::lock_guard guard(mMutex);
    const std::string* name = mColumns.nameOf(column);
    return name == nullptr ? nullptr : removeColumn(std::string(*name));
}

template <typename Traits>
void KeyedRows<Traits>::clearAllColumns()
{
    const std::lock_guard guard(mMutex);
    for (const auto& [key, row] : mRows)
        row->clearDataItem();
    mColumns.clear();
}

template <typename Traits>
std::shared_ptr<DataColumn> KeyedRows<Traits>::exchangeColumn(const std::string& name,
                                                              DataColumn* column)
{
    const std::lock_guard guard(mMutex);
    auto old = mColumns.take(name);
    if (column == nullptr)
        return old;
    mColumns.add(name, column);
    for (const auto& [key, row] : mRows)
        if (DataItem* item = row->getDataItem(name))
            changeColumn(*item, name, *column);
    return old;
}

template <typename Traits>
DataColumn* KeyedRows<Traits>::exchangeAndHandOver(const std::string& name, DataColumn* column)
{
    const std::lock_guard guard(mMutex);
    const auto old = exchangeColumn(name, column);
    return old.get() == column ? nullptr : ColumnSet::handOver(old);
}

template <typename Traits>
void KeyedRows<Traits>::changeColumn(DataItem& item, const std::string& name, DataColumn& column)
{
    int index = 0;
    if (column.getType() == DataColumn::ENUM) {
        if (column.getValueIndex(item.getStrVal(), index)) {
            item.setColumn(&column);
            return;
        }
        Traits::Log::enumValueReset(name, item);
        item.init(&column);
    } else if (column.getType() == DataColumn::INT && item.getType() != DataColumn::INT) {
        Traits::Log::intValueReset(name, item);
        item.init(&column);
    } else {
        Traits::Log::valueKept(name, item);
        item.setColumn(&column);
    }
}

// Rows

template <typename Traits>
DataRow* KeyedRows<Traits>::findRow(const Key& key) const
{
    const std::lock_guard guard(mMutex);
    const auto found = mRows.find(key);
    return found == mRows.end() ? nullptr : found->second;
}

template <typename Traits>
void KeyedRows<Traits>::addRow(const Key& key, DataRow* row)
{
    if (row == nullptr)
        return;
    row->leaveOwner(); // before the lock: the present owner has a lock of its own
    const std::lock_guard guard(mMutex);
    const auto old = removeRow(key); // freed last: `key` may be its own
    mRows[key] = row;
    Traits::assignKey(*row, key);
    row->setOwner(static_cast<typename Traits::Owner*>(this));
    if (mDeletedBefore && key < *mDeletedBefore)
        mDeletedBefore.reset();
}

template <typename Traits>
std::unique_ptr<DataRow> KeyedRows<Traits>::removeRow(const Key& key)
{
    const std::lock_guard guard(mMutex);
    const auto place = mRows.find(key);
    return place == mRows.end() ? nullptr : takeRow(place).first;
}

template <typename Traits>
std::unique_ptr<DataRow> KeyedRows<Traits>::removeRow(const DataRow* row)
{
    const std::lock_guard guard(mMutex);
    const auto place = placeOf(row);
    return place == mRows.end() ? nullptr : takeRow(place).first;
}

template <typename Traits>
void KeyedRows<Traits>::releaseRow(DataRow& row)
{
    removeRow(&row).release();
}

template <typename Traits>
void KeyedRows<Traits>::forgetDeletedRows()
{
    const std::lock_guard guard(mMutex);
    mDeletedBefore.reset();
}

template <typename Traits>
typename KeyedRows<Traits>::RowMap::const_iterator KeyedRows<Traits>::firstUndeletedRow() const
{
    const std::lock_guard guard(mMutex);
    const auto from = mDeletedBefore ? mRows.lower_bound(*mDeletedBefore) : mRows.begin();
    const auto kept = std::find_if(from, mRows.end(), [](const auto& entry) {
        return (entry.second->getState() & STATE_DELETED) == 0;
    });
    if (!mRows.empty())
        mDeletedBefore = kept != mRows.end() ? kept->first : mRows.rbegin()->first;
    return kept;
}

template <typename Traits>
typename KeyedRows<Traits>::Place KeyedRows<Traits>::placeOf(const DataRow* row)
{
    auto place = mRows.begin();
    while (place != mRows.end() && place->second != row)
        ++place;
    return place;
}

template <typename Traits>
std::pair<std::unique_ptr<DataRow>, typename KeyedRows<Traits>::Place>
KeyedRows<Traits>::takeRow(Place place)
{
    std::unique_ptr<DataRow> row(place->second);
    row->setOwner(static_cast<typename Traits::Owner*>(nullptr));
    return {std::move(row), mRows.erase(place)};
}

template <typename Traits>
DataRow* KeyedRows<Traits>::makeRow(const Key& key, const DataRow* templateRow, bool reuse)
{
    const std::lock_guard guard(mMutex);
    DataRow* row = findRow(key);
    if (row == nullptr)
        row = newRowAt(key, templateRow);
    else if (reuse)
        refill(*row, key, templateRow);
    // Kept on purpose: applications count on an existing row that is not reused staying as it is,
    // with the table marked modified all the same.
    addState(STATE_MODIFIED);
    return row;
}

template <typename Traits>
DataRow* KeyedRows<Traits>::newRowAt(const Key& key, const DataRow* templateRow)
{
    auto* row = new DataRow(0);
    addRow(key, row);
    mColumns.each([&](DataColumn& column) {
        auto* item = new DataItem(&column);
        // Copied before it joins the row, so that the row is new and not modified: a rollback
        // removes it.
        const DataItem* value = templateRow ? templateRow->getDataItem(column.getName()) : nullptr;
        if (value != nullptr)
            item->setValue(*value);
        row->addDataItem(column.getName(), item);
    });
    row->addState(STATE_ADDED);
    return row;
}

template <typename Traits>
void KeyedRows<Traits>::refill(DataRow& row, const Key& key, const DataRow* templateRow)
{
    mColumns.each([&](const DataColumn& column) {
        DataItem* item = row.getDataItem(column.getName());
        if (item == nullptr)
            return;
        const DataItem* value = templateRow ? templateRow->getDataItem(column.getName()) : nullptr;
        if (value != nullptr) {
            Traits::Log::copyingValue(key, column, *value);
            item->setValue(*value);
        } else if (templateRow == nullptr) {
            item->resetValue();
        }
    });
    row.addState(STATE_MODIFIED);
}

template <typename Traits>
Fcodes KeyedRows<Traits>::markRowDeleted(const Key& key)
{
    const std::lock_guard guard(mMutex);
    DataRow* row = findRow(key);
    if (row == nullptr)
        return FC_NO_SUCH_NAME;
    row->addState(STATE_DELETED);
    addState(STATE_MODIFIED);
    return FC_OK;
}

template <typename Traits>
Fcodes KeyedRows<Traits>::destroyRow(const Key& key)
{
    removeRow(key);
    return FC_OK;
}

template <typename Traits>
Fcodes KeyedRows<Traits>::destroyAllRows()
{
    const std::lock_guard guard(mMutex);
    while (!mRows.empty())
        takeRow(mRows.begin());
    return FC_OK;
}

// Merging

template <typename Traits>
void KeyedRows<Traits>::merge(const KeyedRows& reference, bool keepColumns, bool mergeColumns,
                              bool copyRows, bool reuse)
{
    const std::scoped_lock guard(mMutex, reference.mMutex);
    if (mergeColumns)
        mergeReferenceColumns(reference);
    if (!keepColumns)
        dropColumnsAbsentFrom(reference);
    if (!copyRows)
        return;
    for (const auto& [key, row] : reference.mRows) {
        Traits::Log::copyingRow(key);
        makeRow(key, row, reuse);
    }
}

template <typename Traits>
void KeyedRows<Traits>::mergeReferenceColumns(const KeyedRows& reference)
{
    reference.mColumns.each([&](const DataColumn& column) {
        const DataColumn* mine = mColumns.get(column.getName());
        if (mine == nullptr) {
            mColumns.add(column.getName(), new DataColumn(column));
        } else if (!mine->isEqualTo(column)) {
            Traits::Log::columnChanged(mName, column);
            exchangeColumn(column.getName(), new DataColumn(column));
        }
    });
}

template <typename Traits>
void KeyedRows<Traits>::dropColumnsAbsentFrom(const KeyedRows& reference)
{
    for (const std::string& name : mColumns.names())
        if (reference.mColumns.get(name) == nullptr)
            removeColumn(name);
}

// Text

template <typename Traits>
std::string& KeyedRows<Traits>::toString(std::string& out)
{
    const std::lock_guard guard(mMutex);
    out.assign(Traits::kStart).append(mName).append("\">\n");
    std::string element;
    out.append(Traits::kColumnsStart);
    mColumns.each([&](const DataColumn& column) { out.append(column.toString(element)); });
    out.append(Traits::kColumnsEnd);
    for (const auto& [key, row] : mRows)
        out.append(row->toString(element));
    return out.append(Traits::kEnd);
}

template <typename Traits>
Fcodes KeyedRows<Traits>::initFromString(const std::string& text)
{
    const std::lock_guard guard(mMutex);
    if (getPropertyValue(text, 0, Traits::kNameAttribute, mName) == std::string::npos) {
        Traits::Log::nameMissing(text);
        return FC_BODY_ERROR;
    }
    const Fcodes columns = readColumns(text);
    return columns | readRows(text);
}

template <typename Traits>
Fcodes KeyedRows<Traits>::readColumns(const std::string& text)
{
    std::string_view columns;
    if (findSegment(text, 0, Traits::kColumnsElement, columns) == std::string::npos) {
        Traits::Log::columnsMissing(text);
        return FC_OK;
    }
    Fcodes result = FC_OK;
    SegmentIterator walk(columns, "Column");
    std::string_view segment;
    while (walk.next(segment)) {
        DataColumn column;
        const Fcodes columnResult = column.initFromString(std::string(segment));
        if (columnResult == FC_OK)
            addColumn(column.getName(), new DataColumn(column));
        else
            Traits::Log::badColumn(columnResult);
        result |= columnResult;
    }
    return result;
}

template <typename Traits>
Fcodes KeyedRows<Traits>::readRows(const std::string& text)
{
    // Each row gets a cell for every column, named in the text or not: without a bound a small text
    // of many columns and many empty rows would take all memory there is.
    const std::size_t maxCells = 1'000'000 + 4 * text.size();
    const std::size_t rowsBefore = mRows.size();
    Fcodes result = FC_OK;
    SegmentIterator walk(text, "Row");
    std::string_view segment;
    while (walk.next(segment)) {
        const std::size_t newRows = mRows.size() - rowsBefore;
        if (mColumns.size() * newRows > maxCells) {
            Traits::Log::tooManyCells(newRows, mColumns.size());
            return result | FC_BODY_ERROR;
        }
        result |= readRow(std::string(segment));
    }
    return result;
}

template <typename Traits>
Fcodes KeyedRows<Traits>::readRow(const std::string& segment)
{
    std::string id;
    getPropertyValue(segment, 0, "ID", id);
    const Key key = Traits::keyFromText(id);
    const Fcodes result = makeRow(key, nullptr, false)->initFromString(segment);
    if (result != FC_OK)
        Traits::Log::badRow(key, result);
    return result;
}

template class KeyedRows<TableTraits>;
template class KeyedRows<ObjectTraits>;
