#pragma once

// A table: columns in the order in which they were added, and rows by an integer id. The data set
// that holds it owns it; it owns its columns and rows. Any thread may call every operation, which
// runs under the table's recursive lock; only the operations that return iterators do not take it.
// Work on a row, an item or an iterator goes inside lock(), `std::lock_guard guard(table)`.
//
// What is added belongs to the table from then on, in place of one with the same name or id, which
// is freed; null is ignored. What is removed is handed back: drop the result and it is freed. The
// exception is replaceColumn(). What a look-up returns stays the table's. The operations of the
// accept/rollback cycle, of the text form and of the state are in KeyedRows.

#include "table/KeyedRows.h"

class DataTable;

extern template class KeyedRows<TableTraits>;

class DataTable : public KeyedRows<TableTraits>
{
public:
    /// A table without columns and rows, STATE_ADDED.
    DataTable() = default;
    explicit DataTable(const std::string& id) : KeyedRows(id) {}

    /// Leaves its data set and frees its rows and columns.
    ~DataTable() override;

    /// The table's name. Its place in a data set does not follow setId().
    std::string getId() const { return name(); }
    void setId(const std::string& id) { rename(id); }

    /// The data set that holds the table; null for a table that stands alone.
    DataSet* getDataSet() const;

    /// Columns, by name; null when there is none. `name` is to be the column's own name. Adding one
    /// gives no items to the rows that exist; removing one frees its items in all rows.
    void addColumns(const std::string& name, DataColumn* column) { addColumn(name, column); }
    DataColumn* getColumns(const std::string& name) const { return findColumn(name); }
    std::shared_ptr<DataColumn> removeColumns(const std::string& name);
    std::shared_ptr<DataColumn> removeColumns(const DataColumn* column);

    /// Frees all columns and the items of all rows.
    void clearColumns() { clearAllColumns(); }

    /// Puts the column in the place of the one called `name`, at the end of the order; items of
    /// that name keep their value where the new column can hold it and else take its default, which
    /// is logged. With null the old column only leaves, and its items stay.
    ///
    /// Returns the old column, which from then on is the caller's to free; null when there was
    /// none, or when another table or object still has it. It must be kept for as long as an item
    /// points at it: after a replacement by null the items of the rows do, and always items that
    /// were cloned, added under another name, or taken out before, alone or with their row.
    DataColumn* replaceColumn(const std::string& name, DataColumn* column);

    /// In column order; the names are the columns' own.
    std::vector<std::string> getColumnNames() const;
    int getColumnsNum() const;

    /// The columns in order; getColumnListBegin() and getColumnListEnd() take no lock. The other
    /// List operations are those above, under the column's own name.
    ColumnSet::List::iterator getColumnListBegin() { return mColumns.list().begin(); }
    ColumnSet::List::iterator getColumnListEnd() { return mColumns.list().end(); }
    ColumnSet::List::const_iterator getColumnListBegin() const { return mColumns.list().begin(); }
    ColumnSet::List::const_iterator getColumnListEnd() const { return mColumns.list().end(); }
    void addColumnList(DataColumn* column);
    std::shared_ptr<DataColumn> removeColumnList(const DataColumn* column);
    void clearColumnList() { clearAllColumns(); }

    /// Rows, by id; null when there is none. A row that is added takes the id. None of these
    /// changes a state.
    DataRow* getRows(int id) const { return findRow(id); }
    void addRows(int id, DataRow* row) { addRow(id, row); }
    std::unique_ptr<DataRow> removeRows(int id) { return removeRow(id); }
    std::unique_ptr<DataRow> removeRows(const DataRow* row) { return removeRow(row); }

    /// Free all rows at once; doDeleteAllRows() returns FC_OK. No state changes, and isChanged()
    /// does not show it.
    void clearRows() { destroyAllRows(); }
    Fcodes doDeleteAllRows() { return destroyAllRows(); }

    /// All rows, those marked deleted included, in the order of their ids: `it->first` is the id,
    /// `it->second` the DataRow*. Adding or removing a row leaves iterators to the others valid.
    /// The operations that return iterators take no lock.
    int getRowsNum() const;
    RowMap::iterator getRowsBegin() { return mRows.begin(); }
    RowMap::iterator getRowsEnd() { return mRows.end(); }
    RowMap::const_iterator getRowsBegin() const { return mRows.begin(); }
    RowMap::const_iterator getRowsEnd() const { return mRows.end(); }

    /// Walks by id; 0 when there is no such row. They pass over different rows: the first over
    /// those marked deleted; the next over those marked deleted and nothing else, and it is 0 when
    /// the table has no row `id`; the last over all that are not clean.
    int getFirstRowIndex() const;
    int getNextRowIndex(int id) const;
    int getLastRowIndex() const;

    /// The smallest id from 1 upward that no row has.
    int getAvailableRowId() const;

    /// Make a row, STATE_ADDED, with an item for each column, which has the column's default or the
    /// value of the item of that name in `templateRow` (null: none). The table is then modified.
    /// newRow() takes the smallest free id and returns it; appendNewRow() takes the highest id and
    /// 1 more, at least 1, or the smallest free id when the highest is the largest int, and returns
    /// it.
    ///
    /// A row that exists under `id` is returned as it is; with `reuse` its pending values become
    /// those of the template, or with no template all its values the defaults, and it is modified.
    /// The table is modified in any case. Never null; the row stays the table's.
    int newRow();
    DataRow* newRow(int id, const DataRow* templateRow, bool reuse);
    int appendNewRow();

    /// deleteRow() marks the row, and acceptChanges() frees it; FC_NO_SUCH_NAME when there is none.
    /// doDeleteRow() frees it at once; FC_OK also when there is none. No state changes with that,
    /// and isChanged() does not show it.
    Fcodes deleteRow(int id) { return markRowDeleted(id); }
    Fcodes doDeleteRow(int id) { return destroyRow(id); }

    /// Takes over copies of what the reference has: with `mergeColumns` its columns, new and
    /// changed; with `copyRows` its rows, by newRow(id, row, reuse). Without `keepColumns`, columns
    /// that it lacks are removed. The reference stays as it is and is locked for the whole update.
    void update(const DataTable& reference, bool keepColumns, bool mergeColumns, bool copyRows,
                bool reuse);

private:
    friend class DataSet;

    void setDataSet(DataSet* set);
    void leaveDataSet();
};
