#pragma once

// A table: columns in the order in which they were added, and rows by an id from 1 upward. The data
// set that holds it owns it; it owns its columns and rows. Any thread may call every operation;
// take lock() around work on a row, an item or an iterator, `std::lock_guard guard(table)`.
//
// What is added belongs to the table from then on, in place of a namesake, which is freed. What is
// removed is handed back: drop the result and it is freed. Pointers that look-ups return stay the
// table's. The cycle, text and state operations are those of KeyedRows.

#include "table/KeyedRows.h"

class DataTable;

/// In what a table differs from an object.
struct TableTraits {
    using Key = int;
    using Holder = DataTable;
    static constexpr auto kOrder = ColumnSet::Order::BY_INSERTION;

    static constexpr char kNameAttribute[] = "Name";
    static constexpr char kColumnsElement[] = "Columns";
    static constexpr char kStart[] = "\t<Table Name=\"";
    static constexpr char kColumnsStart[] = "\t\t<Columns>\n";
    static constexpr char kColumnsEnd[] = "\t\t</Columns>\n";
    static constexpr char kEnd[] = "\t</Table>\n";

    static int keyOf(const std::string& id);
    static void markKey(DataRow& row, int id);

    static void reportEnumLost(const std::string& name, const DataItem& item);
    static void reportIntLost(const std::string& name, const DataItem& item);
    static void reportKept(const std::string& name, const DataItem& item);
    static void reportColumnChanged(const std::string& table, const DataColumn& column);
    static void reportRowCopied(int id);
    static void reportValueCopied(int id, const DataColumn& column, const DataItem& value);
    static void reportNoName(const std::string& text);
    static void reportNoColumns(const std::string& text);
    static void reportBadColumn(Fcodes code);
    static void reportBadRow(int id, Fcodes code);
    static void reportTooManyCells(std::size_t rows, std::size_t columns);
};

extern template class KeyedRows<TableTraits>;

class DataTable : public KeyedRows<TableTraits>
{
public:
    DataTable() = default;
    explicit DataTable(const std::string& id) : KeyedRows(id) {}

    /// Leaves its data set.
    ~DataTable() override;

    std::string getId() const { return name(); }
    void setId(const std::string& id) { rename(id); }

    /// Columns. `name` is to be the column's own name. Adding one gives no items to rows that exist
    /// already; removing one takes its items out of all rows.
    void addColumns(const std::string& name, DataColumn* column) { addColumn(name, column); }
    DataColumn* getColumns(const std::string& name) const { return findColumn(name); }
    std::shared_ptr<DataColumn> removeColumns(const std::string& name);
    std::shared_ptr<DataColumn> removeColumns(const DataColumn* column);
    void clearColumns() { clearAllColumns(); }

    /// Puts the column in the place of its namesake, at the end of the order, and hands the old one
    /// back. Items keep their value where the new column can hold it, else take its default. With
    /// null the old column only leaves: its items stay and go on pointing at it.
    std::shared_ptr<DataColumn> replaceColumn(const std::string& name, DataColumn* column);

    std::vector<std::string> getColumnNames() const;
    int getColumnsNum() const;

    /// The columns in order. The map and the list hold the same columns: the List operations are
    /// those above, under the column's own name.
    ColumnSet::List::const_iterator getColumnListBegin() const { return mColumns.list().begin(); }
    ColumnSet::List::const_iterator getColumnListEnd() const { return mColumns.list().end(); }
    void addColumnList(DataColumn* column);
    std::shared_ptr<DataColumn> removeColumnList(const DataColumn* column);
    void clearColumnList() { clearAllColumns(); }

    /// Rows, as they are: no state changes here.
    DataRow* getRows(int id) const { return findRow(id); }
    void addRows(int id, DataRow* row) { addRow(id, row); }
    std::unique_ptr<DataRow> removeRows(int id) { return removeRow(id); }
    std::unique_ptr<DataRow> removeRows(const DataRow* row) { return removeRow(row); }
    void clearRows() { destroyAllRows(); }
    Fcodes doDeleteAllRows() { return destroyAllRows(); }
    int getRowsNum() const;
    RowMap::const_iterator getRowsBegin() const { return mRows.begin(); }
    RowMap::const_iterator getRowsEnd() const { return mRows.end(); }

    /// The three walks pass over different rows: the first over those marked deleted; the next over
    /// those marked deleted and nothing else, and it starts at a row that exists; the last over all
    /// that are not clean. 0 when there is none.
    int getFirstRowIndex() const;
    int getNextRowIndex(int id) const;
    int getLastRowIndex() const;

    /// The smallest free id.
    int getAvailableRowId() const;

    /// New rows have an item for each column, with the column's default or the value of its
    /// namesake in `pattern`. A row that exists is returned as it is, or with `reuse` reset, or
    /// refilled from `pattern`. The table is modified in any case.
    int newRow();
    DataRow* newRow(int id, const DataRow* pattern, bool reuse);

    /// A new row behind all others; its id.
    int appendNewRow();

    /// deleteRow() marks the row, and acceptChanges() removes it; FC_NO_SUCH_NAME when there is
    /// none. doDeleteRow() removes it at once; FC_OK in any case.
    Fcodes deleteRow(int id) { return markRowDeleted(id); }
    Fcodes doDeleteRow(int id) { return destroyRow(id); }

    /// Takes over what the reference has: with `mergeColumns` its columns, new and changed; without
    /// `keepColumns` columns that it lacks are removed; with `copyRows` its rows, and with `reuse`
    /// also into rows that exist.
    void update(const DataTable& reference, bool keepColumns, bool mergeColumns, bool copyRows,
                bool reuse);

private:
    friend class DataSet;

    void belongTo(DataSet* set);
    void leave();
};
