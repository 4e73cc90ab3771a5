#pragma once

// What DataTable and DataObject share: rows by key, each with one item for each of the named
// columns, the accept/rollback cycle over them, merging, and the text form. KeyedRowsTraits.h says
// in what the two differ.
//
// It owns its rows and columns. Every operation runs under its recursive mutex, so that any thread
// may call it; callers that work on a row or an iterator take lock() around that. update() of one
// from another is the only operation that locks two: both at once, without risk of deadlock.

#include "DataRow.h"
#include "Fcodes.h"
#include "StateBits.h"
#include "table/ColumnSet.h"
#include "table/KeyedRowsTraits.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class DataSet;

template <typename Traits>
class KeyedRows
{
public:
    using Key = typename Traits::Key;
    using RowMap = std::map<Key, DataRow*>;

    KeyedRows(const KeyedRows&) = delete;
    KeyedRows& operator=(const KeyedRows&) = delete;
    virtual ~KeyedRows() { clear(); }

    /// Frees the rows marked deleted, makes the pending values of rows that are new or modified the
    /// committed ones, and ends clean. The rows' results joined.
    virtual Fcodes acceptChanges();

    /// Set the state of all items, all rows and this to STATE_MODIFIED, or to clean; marks for
    /// deletion go as well. touch() also marks the data set above modified. The rows' results
    /// joined.
    virtual Fcodes touch();
    virtual Fcodes untouch();

    /// Replaces `out` by the whole element and returns `out`. Rows that are new or marked deleted
    /// are written like any other, committed values only. No character is escaped.
    virtual std::string& toString(std::string& out);

    /// Reads what toString() writes, into what is already here: columns take the place of their
    /// namesakes, rows that exist are filled, and new rows are STATE_ADDED. The codes of all parts
    /// joined; what could be read is in. FC_BODY_ERROR when the name is missing (nothing is then
    /// read), when a column is incomplete, and when the rows of the text would add far more cells
    /// than it has characters: 1,000,000 and 4 for each byte. FC_NO_SUCH_NAME when a row names an
    /// item that it does not have.
    Fcodes initFromString(const std::string& text);

    /// Frees the rows whose only mark is STATE_ADDED, clears the marks of the others and ends
    /// clean; pending values stay, see DataItem. FC_OK.
    Fcodes rollbackChanges();

    /// True when the state is not clean.
    bool isChanged() const { return getState() != STATE_CLEAN; }

    /// The state is replaced, or ORed to; one that is then not clean marks the data set above
    /// modified. Rows do not follow.
    unsigned getState() const;
    void setState(unsigned bits);
    void addState(unsigned bits);

    /// The recursive lock that every operation takes. Not to be held while an operation waits for
    /// another thread that may need this table or object.
    void lock() const { mMutex.lock(); }
    void unlock() const { mMutex.unlock(); }

    /// Frees all rows and columns; name and state stay.
    void cleanUpRelations() { clear(); }

protected:
    KeyedRows() : mColumns(Traits::kColumnOrder) {}
    explicit KeyedRows(const std::string& name) : mName(name), mColumns(Traits::kColumnOrder) {}

    std::string name() const;
    void rename(const std::string& name);

    DataColumn* findColumn(const std::string& name) const;
    void addColumn(const std::string& name, DataColumn* column);
    std::shared_ptr<DataColumn> removeColumn(const std::string& name);
    std::shared_ptr<DataColumn> removeColumn(const DataColumn* column);
    std::shared_ptr<DataColumn> exchangeColumn(const std::string& name, DataColumn* column);
    DataColumn* exchangeAndHandOver(const std::string& name, DataColumn* column);
    void clearAllColumns();

    DataRow* findRow(const Key& key) const;
    void addRow(const Key& key, DataRow* row);
    std::unique_ptr<DataRow> removeRow(const Key& key);
    std::unique_ptr<DataRow> removeRow(const DataRow* row);
    DataRow* makeRow(const Key& key, const DataRow* templateRow, bool reuse);
    Fcodes markRowDeleted(const Key& key);
    Fcodes destroyRow(const Key& key);
    Fcodes destroyAllRows();

    /// The first row that is not marked deleted.
    typename RowMap::const_iterator firstUndeletedRow() const;

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

    /// Takes the row out without freeing it: it is being destroyed, or added elsewhere.
    void releaseRow(DataRow& row);

    /// A row is no longer marked deleted.
    void forgetDeletedRows();

    void clear();
    Place placeOf(const DataRow* row);
    std::pair<std::unique_ptr<DataRow>, Place> takeRow(Place place);

    DataRow* newRowAt(const Key& key, const DataRow* templateRow);
    void refill(DataRow& row, const Key& key, const DataRow* templateRow);
    static void changeColumn(DataItem& item, const std::string& name, DataColumn& column);

    void mergeReferenceColumns(const KeyedRows& reference);
    void dropColumnsAbsentFrom(const KeyedRows& reference);

    Fcodes readColumns(const std::string& text);
    Fcodes readRows(const std::string& text);
    Fcodes readRow(const std::string& segment);

    /// All rows before this key are marked deleted; none: nothing is known. Without it, a walk
    /// behind many deleted rows would pass over all of them at each start.
    mutable std::optional<Key> mDeletedBefore;
};
