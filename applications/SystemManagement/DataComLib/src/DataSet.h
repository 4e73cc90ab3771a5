#pragma once

// A named, versioned collection of tables, with a file form. It owns its tables.
//
// It has no lock of its own: load it, add and remove tables before other threads use it. From then
// on any thread may call the operations that leave the list of tables alone: each works on a table
// under that table's lock, and the set's state is atomic.
//
// A table that is added belongs to the set from then on, in place of one with the same name, which
// is freed; null is ignored. One that is removed is handed back: drop the result and it is freed.
// What a look-up returns stays the set's.

#include "DataTable.h"
#include "Fcodes.h"
#include "StateBits.h"

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>

class DataSet
{
public:
    /// In the order in which they were added.
    using TableList = std::list<DataTable*>;

    /// A set without tables, version "0", STATE_ADDED.
    DataSet();
    explicit DataSet(const std::string& id);

    /// Frees its tables.
    virtual ~DataSet();

    DataSet(const DataSet&) = delete;
    DataSet& operator=(const DataSet&) = delete;

    /// Do the same to all tables in the order of their names, and set the set's state: clean,
    /// STATE_MODIFIED, clean. The tables' results joined.
    virtual Fcodes acceptChanges();
    virtual Fcodes touch();
    virtual Fcodes untouch();

    /// The same for one table and the set's own state. FC_OK also when there is no such table, and
    /// then nothing changes.
    virtual Fcodes touch(const std::string& table);
    virtual Fcodes untouch(const std::string& table);

    /// Replaces `out` by the whole set, tables in the order of their names, and returns `out`. Each
    /// table is locked while it is written, not all at once. No character is escaped: what holds a
    /// double quote or a ">" is not read back.
    virtual std::string& toString(std::string& out) const;

    /// Reads what toString() writes; tables of the text take the place of their namesakes, others
    /// stay. The codes of all tables joined, see KeyedRows; a table that gives any is left out.
    /// FC_BODY_ERROR without an ID, and then nothing is read. Without a version it is "0".
    Fcodes initFromString(const std::string& text);

    /// Replaces all tables by the file's; ends clean when all could be read. FC_NO_SUCH_NAME when
    /// the file cannot be opened or is a FIFO or a device, and FC_UNAVAILABLE when it is empty or a
    /// directory: the tables then stay. Else the result of initFromString().
    Fcodes load(const std::string& file);

    /// Writes the text to the file, which a crash leaves as it was or whole. FC_OK also when
    /// writing failed, which is logged as an error. So is, once for each table, what load() will
    /// not read back: a name or text with a double quote or a ">", a text that is none of its
    /// enumeration's, an item without a column of its name.
    Fcodes store(const std::string& file) const;

    /// Rolls back all tables, in the order of their names, and ends clean. FC_OK.
    Fcodes rollbackChanges();

    /// True when the state is not clean.
    bool isChanged() const { return getState() != STATE_CLEAN; }

    /// Name and version as the text shows them; not to be set while other threads use the set.
    const std::string& getId() const { return mId; }
    void setId(const std::string& id) { mId = id; }
    const std::string& getVersion() const { return mVersion; }
    void setVersion(const std::string& version) { mVersion = version; }

    /// The set's own state, replaced or ORed to; the tables do not follow.
    unsigned getState() const { return mState; }
    void setState(unsigned bits) { mState = bits; }
    void addState(unsigned bits) { mState |= bits; }

    /// Tables, by name; null when there is none. `name` is to be the table's own id. A table that
    /// is added leaves the set in which it was. No state changes.
    DataTable* getTable(const std::string& name) const;
    void addTable(const std::string& name, DataTable* table);
    std::unique_ptr<DataTable> removeTable(const std::string& name);
    std::unique_ptr<DataTable> removeTable(const DataTable* table);

    /// Both free all tables.
    void clearTable();
    void cleanUpRelations() { clearTable(); }

    /// The tables in the order in which they were added. The List operations are those above, under
    /// the table's own id.
    TableList::iterator getTableListBegin() { return mTableList.begin(); }
    TableList::iterator getTableListEnd() { return mTableList.end(); }
    TableList::const_iterator getTableListBegin() const { return mTableList.begin(); }
    TableList::const_iterator getTableListEnd() const { return mTableList.end(); }
    void addTableList(DataTable* table);
    std::unique_ptr<DataTable> removeTableList(const DataTable* table);
    void clearTableList() { clearTable(); }

    /// The committed value of a cell. FC_NO_SUCH_NAME when table, row or item is missing, which is
    /// logged; `value`, which must not be null, is then untouched.
    Fcodes getIntParam(const std::string& table, int rowId, const std::string& item,
                       int* value) const;
    Fcodes getStringParam(const std::string& table, int rowId, const std::string& item,
                          std::string* value) const;

    /// As DataTable's; 0 also for an unknown table.
    int getFirstRowIndex(const std::string& table) const;
    int getNextRowIndex(const std::string& table, int rowId) const;

    /// Takes over what the reference has, and leaves the set modified if a table came or went:
    ///  - with `addTables`, copies of the tables that only the reference has; a copy that cannot be
    ///    read is logged and left out, and its code is joined to the result, which else is FC_OK;
    ///  - without `keepTables`, tables that the reference lacks are freed;
    ///  - tables that both have are merged by DataTable::update() with the last four flags.
    Fcodes update(const DataSet& reference, bool keepTables, bool addTables, bool keepColumns,
                  bool mergeColumns, bool copyRows, bool reuse);

private:
    friend class DataTable;

    struct Entry {
        std::unique_ptr<DataTable> table;
        TableList::iterator listPosition;
    };
    using TableMap = std::map<std::string, Entry>;

    void releaseTable(DataTable& table);
    std::unique_ptr<DataTable> takeTable(TableMap::iterator place);

    Fcodes addCopy(const std::string& name, DataTable& table);
    void dropTablesAbsentFrom(const DataSet& reference);

    std::string mId;
    std::string mVersion = "0";
    std::atomic<unsigned> mState = STATE_ADDED; // tables write it, each under its own lock
    TableMap mTables;
    TableList mTableList; // the same tables
};
