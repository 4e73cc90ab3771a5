#pragma once

// What DataTable and DataObject share: rows by key, each with one item for each of the named
// columns, the accept/rollback cycle over them, merging, and the text form. `Traits` says in what
// the two differ: the key, the column order, the element names, and the words of the log lines,
// which stand whole in the file of the class that speaks.
//
// It owns its rows and columns. Every operation runs under its recursive mutex, so that any thread
// may call it; who works on a row or an iterator takes lock() around that. Of two of these at most
// one call, update(), locks both, and in no fixed order.

#include "DataRow.h"
#include "Fcodes.h"
#include "StateBits.h"
#include "table/ColumnSet.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class DataSet;
template <typename Traits>
class KeyedRows
{
public:
    using Key = typename Traits::Key;
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
    KeyedRows() : mColumns(Traits::kOrder) {}
    explicit KeyedRows(const std::string& name) : mName(name), mColumns(Traits::kOrder) {}

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
