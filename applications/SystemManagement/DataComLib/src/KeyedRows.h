#pragma once

// What DataTable and DataObject share: rows by key, each with one item for each of the named
// columns, the accept/rollback cycle over them, merging, and the text form. `Texts` says in what
// the two differ: the key, the column order, the element names, and the words of the log lines,
// which stand whole in the file of the class that speaks.
//
// It owns its rows and columns. Every operation runs under its recursive mutex, so that any thread
// may call it; who works on a row or an iterator takes lock() around that. Of two of these at most
// one call, update(), locks both, and in no fixed order.

#include "ColumnSet.h"
#include "DataRow.h"
#include "DataSet.h"
#include "Fcodes.h"
#include "MessageText.h"
#include "StateBits.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

template <typename Texts>
class KeyedRows
{
public:
    using Key = typename Texts::Key;
    using RowMap = std::map<Key, std::unique_ptr<DataRow>>;

    KeyedRows(const KeyedRows&) = delete;
    KeyedRows& operator=(const KeyedRows&) = delete;
    virtual ~KeyedRows() { clear(); }

    /// Removes the rows marked deleted, makes the pending values of the others permanent, and ends
    /// clean. The rows' results joined.
    virtual Fcodes acceptChanges();

    /// Marks everything modified, or clean, down to the items. The rows' results joined.
    virtual Fcodes touch();
    virtual Fcodes untouch();

    /// The whole element, in place of what `out` holds; returns `out`. Rows that are new or marked
    /// deleted are written like any other.
    virtual std::string& toString(std::string& out);

    /// Reads what toString() writes, into what is already here: columns take the place of their
    /// namesakes, rows that exist are filled. The codes of all parts joined; what could be read is
    /// in. FC_BODY_ERROR as well when the text asks for far more cells than it has characters.
    Fcodes initFromString(const std::string& text);

    /// Removes the rows that are new and clears the marks of the others; ends clean.
    Fcodes rollbackChanges();

    bool isChanged() const { return getState() != STATE_CLEAN; }

    /// A state other than clean marks the data set above modified.
    unsigned getState() const;
    void setState(unsigned bits);
    void addState(unsigned bits);

    void lock() const { mMutex.lock(); }
    void unlock() const { mMutex.unlock(); }

    /// Frees all rows and columns.
    void cleanUpRelations() { clear(); }

protected:
    KeyedRows() : mColumns(Texts::kOrder) {}
    explicit KeyedRows(const std::string& name) : mName(name), mColumns(Texts::kOrder) {}

    std::string name() const;
    void rename(const std::string& name);

    DataColumn* findColumn(const std::string& name) const;
    void addColumn(const std::string& name, DataColumn* column);
    std::shared_ptr<DataColumn> removeColumn(const std::string& name);
    std::shared_ptr<DataColumn> removeColumn(const DataColumn* column);
    std::shared_ptr<DataColumn> exchangeColumn(const std::string& name, DataColumn* column);
    void clearAllColumns();

    DataRow* findRow(const Key& key) const;
    void addRow(const Key& key, DataRow* row);
    std::unique_ptr<DataRow> removeRow(const Key& key);
    std::unique_ptr<DataRow> removeRow(const DataRow* row);
    DataRow* makeRow(const Key& key, const DataRow* pattern, bool reuse);
    Fcodes markRowDeleted(const Key& key);
    Fcodes destroyRow(const Key& key);
    Fcodes destroyAllRows();

    void merge(const KeyedRows& reference, bool keepColumns, bool mergeColumns, bool copyRows,
               bool reuse);

    mutable std::recursive_mutex mMutex; // guards everything below
    std::string mName;
    unsigned mState = STATE_ADDED;
    ColumnSet mColumns;
    RowMap mRows;
    DataSet* mDataSet = nullptr; // the set that owns this; null for one that stands alone

private:
    friend class DataRow;

    using Place = typename RowMap::iterator;

    /// The row is being destroyed or moved by someone else: let go of it.
    void releaseRow(DataRow& row);

    void clear();
    Place placeOf(const DataRow* row);
    std::pair<std::unique_ptr<DataRow>, Place> takeRow(Place place);

    DataRow* newRowAt(const Key& key, const DataRow* pattern);
    void refill(DataRow& row, const Key& key, const DataRow* pattern);
    static void changeColumn(DataItem& item, const std::string& name, DataColumn& column);

    void mergeReferenceColumns(const KeyedRows& reference);
    void dropColumnsAbsentFrom(const KeyedRows& reference);

    Fcodes readColumns(const std::string& text);
    Fcodes readRows(const std::string& text);
    Fcodes readRow(const std::string& segment);
};

// State and cycle

template <typename Texts>
unsigned KeyedRows<Texts>::getState() const
{
    const std::lock_guard guard(mMutex);
    return mState;
}

template <typename Texts>
void KeyedRows<Texts>::setState(unsigned bits)
{
    const std::lock_guard guard(mMutex);
    mState = bits;
    if (mState != STATE_CLEAN && mDataSet != nullptr)
        mDataSet->setState(STATE_MODIFIED);
}

template <typename Texts>
void KeyedRows<Texts>::addState(unsigned bits)
{
    const std::lock_guard guard(mMutex);
    setState(mState | bits);
}

template <typename Texts>
Fcodes KeyedRows<Texts>::acceptChanges()
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

template <typename Texts>
Fcodes KeyedRows<Texts>::rollbackChanges()
{
    const std::lock_guard guard(mMutex);
    Fcodes result = FC_OK;
    for (auto place = mRows.begin(); place != mRows.end();) {
        DataRow& row = *place->second;
        // Kept on purpose: peers count on a new row staying once a value of it has been set, or
        // once it has been marked deleted; only its marks are cleared.
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

template <typename Texts>
Fcodes KeyedRows<Texts>::touch()
{
    const std::lock_guard guard(mMutex);
    Fcodes result = FC_OK;
    for (const auto& [key, row] : mRows)
        result |= row->touch();
    setState(STATE_MODIFIED);
    return result;
}

template <typename Texts>
Fcodes KeyedRows<Texts>::untouch()
{
    const std::lock_guard guard(mMutex);
    Fcodes result = FC_OK;
    for (const auto& [key, row] : mRows)
        result |= row->untouch();
    mState = STATE_CLEAN;
    return result;
}

template <typename Texts>
std::string KeyedRows<Texts>::name() const
{
    const std::lock_guard guard(mMutex);
    return mName;
}

template <typename Texts>
void KeyedRows<Texts>::rename(const std::string& name)
{
    const std::lock_guard guard(mMutex);
    mName = name;
}

template <typename Texts>
void KeyedRows<Texts>::clear()
{
    const std::lock_guard guard(mMutex);
    destroyAllRows();
    mColumns.clear();
}

// Columns

template <typename Texts>
DataColumn* KeyedRows<Texts>::findColumn(const std::string& name) const
{
    const std::lock_guard guard(mMutex);
    return mColumns.get(name);
}

template <typename Texts>
void KeyedRows<Texts>::addColumn(const std::string& name, DataColumn* column)
{
    const std::lock_guard guard(mMutex);
    mColumns.add(name, column);
}

template <typename Texts>
std::shared_ptr<DataColumn> KeyedRows<Texts>::removeColumn(const std::string& name)
{
    const std::lock_guard guard(mMutex);
    auto column = mColumns.take(name);
    // A cell without a column would be written, and then make the text unreadable.
    if (column)
        for (const auto& [key, row] : mRows)
            row->removeDataItem(name);
    return column;
}

template <typename Texts>
std::shared_ptr<DataColumn> KeyedRows<Texts>::removeColumn(const DataColumn* column)
{
    const std::lock_guard guard(mMutex);
    const std::string* name = mColumns.nameOf(column);
    return name == nullptr ? nullptr : removeColumn(std::string(*name));
}

template <typename Texts>
void KeyedRows<Texts>::clearAllColumns()
{
    const std::lock_guard guard(mMutex);
    for (const auto& [key, row] : mRows)
        row->clearDataItem();
    mColumns.clear();
}

template <typename Texts>
std::shared_ptr<DataColumn> KeyedRows<Texts>::exchangeColumn(const std::string& name,
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

template <typename Texts>
void KeyedRows<Texts>::changeColumn(DataItem& item, const std::string& name, DataColumn& column)
{
    int index = 0;
    if (column.getType() == DataColumn::ENUM) {
        if (column.getValueIndex(item.getStrVal(), index)) {
            item.setColumn(&column);
            return;
        }
        Texts::reportEnumLost(name, item);
        item.init(&column);
    } else if (column.getType() == DataColumn::INT && item.getType() != DataColumn::INT) {
        Texts::reportIntLost(name, item);
        item.init(&column);
    } else {
        Texts::reportKept(name, item);
        item.setColumn(&column);
    }
}

// Rows

template <typename Texts>
DataRow* KeyedRows<Texts>::findRow(const Key& key) const
{
    const std::lock_guard guard(mMutex);
    const auto found = mRows.find(key);
    return found == mRows.end() ? nullptr : found->second.get();
}

template <typename Texts>
void KeyedRows<Texts>::addRow(const Key& key, DataRow* row)
{
    if (row == nullptr)
        return;
    row->leave(); // before the lock: its holder so far has a lock of its own
    const std::lock_guard guard(mMutex);
    const auto old = removeRow(key); // to the end: `key` may be its own
    mRows[key].reset(row);
    Texts::markKey(*row, key);
    row->belongTo(static_cast<typename Texts::Holder*>(this));
}

template <typename Texts>
std::unique_ptr<DataRow> KeyedRows<Texts>::removeRow(const Key& key)
{
    const std::lock_guard guard(mMutex);
    const auto place = mRows.find(key);
    return place == mRows.end() ? nullptr : takeRow(place).first;
}

template <typename Texts>
std::unique_ptr<DataRow> KeyedRows<Texts>::removeRow(const DataRow* row)
{
    const std::lock_guard guard(mMutex);
    const auto place = placeOf(row);
    return place == mRows.end() ? nullptr : takeRow(place).first;
}

template <typename Texts>
void KeyedRows<Texts>::releaseRow(DataRow& row)
{
    removeRow(&row).release();
}

template <typename Texts>
typename KeyedRows<Texts>::Place KeyedRows<Texts>::placeOf(const DataRow* row)
{
    auto place = mRows.begin();
    while (place != mRows.end() && place->second.get() != row)
        ++place;
    return place;
}

template <typename Texts>
std::pair<std::unique_ptr<DataRow>, typename KeyedRows<Texts>::Place>
KeyedRows<Texts>::takeRow(Place place)
{
    auto row = std::move(place->second);
    row->belongTo(static_cast<typename Texts::Holder*>(nullptr));
    return {std::move(row), mRows.erase(place)};
}

template <typename Texts>
DataRow* KeyedRows<Texts>::makeRow(const Key& key, const DataRow* pattern, bool reuse)
{
    const std::lock_guard guard(mMutex);
    DataRow* row = findRow(key);
    if (row == nullptr)
        row = newRowAt(key, pattern);
    else if (reuse)
        refill(*row, key, pattern);
    // Kept on purpose: peers count on an existing row that is not reused staying as it is, with the
    // table marked modified all the same.
    addState(STATE_MODIFIED);
    return row;
}

template <typename Texts>
DataRow* KeyedRows<Texts>::newRowAt(const Key& key, const DataRow* pattern)
{
    auto* row = new DataRow(0);
    addRow(key, row);
    row->mItemList.reserve(mColumns.size());
    mColumns.each([&](DataColumn& column) {
        auto* item = new DataItem(&column);
        // Copied before it joins the row, so that the row is new and not modified: a rollback
        // removes it.
        const DataItem* value = pattern ? pattern->getDataItem(column.getName()) : nullptr;
        if (value != nullptr)
            item->setValue(*value);
        row->addDataItem(column.getName(), item);
    });
    row->addState(STATE_ADDED);
    return row;
}

template <typename Texts>
void KeyedRows<Texts>::refill(DataRow& row, const Key& key, const DataRow* pattern)
{
    mColumns.each([&](const DataColumn& column) {
        DataItem* item = row.getDataItem(column.getName());
        if (item == nullptr)
            return;
        const DataItem* value = pattern ? pattern->getDataItem(column.getName()) : nullptr;
        if (value != nullptr) {
            Texts::reportValueCopied(key, column, *value);
            item->setValue(*value);
        } else if (pattern == nullptr) {
            item->resetValue();
        }
    });
    row.addState(STATE_MODIFIED);
}

template <typename Texts>
Fcodes KeyedRows<Texts>::markRowDeleted(const Key& key)
{
    const std::lock_guard guard(mMutex);
    DataRow* row = findRow(key);
    if (row == nullptr)
        return FC_NO_SUCH_NAME;
    row->addState(STATE_DELETED);
    addState(STATE_MODIFIED);
    return FC_OK;
}

template <typename Texts>
Fcodes KeyedRows<Texts>::destroyRow(const Key& key)
{
    removeRow(key);
    return FC_OK;
}

template <typename Texts>
Fcodes KeyedRows<Texts>::destroyAllRows()
{
    const std::lock_guard guard(mMutex);
    while (!mRows.empty())
        takeRow(mRows.begin());
    return FC_OK;
}

// Merging

template <typename Texts>
void KeyedRows<Texts>::merge(const KeyedRows& reference, bool keepColumns, bool mergeColumns,
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
        Texts::reportRowCopied(key);
        makeRow(key, row.get(), reuse);
    }
}

template <typename Texts>
void KeyedRows<Texts>::mergeReferenceColumns(const KeyedRows& reference)
{
    reference.mColumns.each([&](const DataColumn& column) {
        const DataColumn* mine = mColumns.get(column.getName());
        if (mine == nullptr) {
            mColumns.add(column.getName(), new DataColumn(column));
        } else if (!mine->isEqualTo(column)) {
            Texts::reportColumnChanged(mName, column);
            exchangeColumn(column.getName(), new DataColumn(column));
        }
    });
}

template <typename Texts>
void KeyedRows<Texts>::dropColumnsAbsentFrom(const KeyedRows& reference)
{
    for (const std::string& name : mColumns.names())
        if (reference.mColumns.get(name) == nullptr)
            removeColumn(name);
}

// Text

template <typename Texts>
std::string& KeyedRows<Texts>::toString(std::string& out)
{
    const std::lock_guard guard(mMutex);
    out.assign(Texts::kStart).append(mName).append("\">\n");
    std::string element;
    out.append(Texts::kColumnsStart);
    mColumns.each([&](const DataColumn& column) { out.append(column.toString(element)); });
    out.append(Texts::kColumnsEnd);
    for (const auto& [key, row] : mRows)
        out.append(row->toString(element));
    return out.append(Texts::kEnd);
}

template <typename Texts>
Fcodes KeyedRows<Texts>::initFromString(const std::string& text)
{
    const std::lock_guard guard(mMutex);
    if (getPropertyValue(text, 0, Texts::kNameAttribute, mName) == std::string::npos) {
        Texts::reportNoName(text);
        return FC_BODY_ERROR;
    }
    const Fcodes columns = readColumns(text);
    return columns | readRows(text);
}

template <typename Texts>
Fcodes KeyedRows<Texts>::readColumns(const std::string& text)
{
    std::string_view columns;
    if (findSegment(text, 0, Texts::kColumnsElement, columns) == std::string::npos) {
        Texts::reportNoColumns(text);
        return FC_OK;
    }
    Fcodes result = FC_OK;
    SegmentWalk walk(columns, "Column");
    std::string_view segment;
    while (walk.next(segment)) {
        DataColumn column;
        const Fcodes read = column.initFromString(std::string(segment));
        if (read == FC_OK)
            addColumn(column.getName(), new DataColumn(column));
        else
            Texts::reportBadColumn(read);
        result |= read;
    }
    return result;
}

template <typename Texts>
Fcodes KeyedRows<Texts>::readRows(const std::string& text)
{
    // Each row gets a cell for every column, named in the text or not: without a bound a small text
    // of many columns and many empty rows would take all memory there is.
    const std::size_t mostCells = 1'000'000 + 4 * text.size();
    Fcodes result = FC_OK;
    SegmentWalk walk(text, "Row");
    std::string_view segment;
    while (walk.next(segment)) {
        if (mColumns.size() * mRows.size() > mostCells) {
            Texts::reportTooManyCells(mRows.size(), mColumns.size());
            return result | FC_BODY_ERROR;
        }
        result |= readRow(std::string(segment));
    }
    return result;
}

template <typename Texts>
Fcodes KeyedRows<Texts>::readRow(const std::string& segment)
{
    std::string id;
    getPropertyValue(segment, 0, "ID", id);
    const Key key = Texts::keyOf(id);
    const Fcodes read = makeRow(key, nullptr, false)->initFromString(segment);
    if (read != FC_OK)
        Texts::reportBadRow(key, read);
    return read;
}
