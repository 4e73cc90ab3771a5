#pragma once

// A named, versioned collection of tables, with a file form. It owns its tables. It has no lock of
// its own: load it, add and remove tables before other threads use it; from then on each table's
// lock guards that table, and the set's state may be read and written by any thread.
//
// A table that is added belongs to the set from then on, in place of a namesake, which is freed.
// One that is removed is handed back: drop the result and it is freed.

#include "Fcodes.h"
#include "StateBits.h"

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>

class DataTable;

class DataSet
{
public:
    using TableList = std::list<DataTable*>;

    DataSet();
    explicit DataSet(const std::string& id);
    virtual ~DataSet();

    DataSet(const DataSet&) = delete;
    DataSet& operator=(const DataSet&) = delete;

    /// All tables in the order of their names, and the set's own state; results joined.
    virtual Fcodes acceptChanges();
    virtual Fcodes touch();
    virtual Fcodes untouch();

    /// One table and the set's state. FC_OK also when there is no such table, and then nothing
    /// changes.
    virtual Fcodes touch(const std::string& table);
    virtual Fcodes untouch(const std::string& table);

    /// The whole set, in place of what `out` holds; returns `out`.
    virtual std::string& toString(std::string& out) const;

    /// Reads what toString() writes; tables in the text take the place of their namesakes. The
    /// codes of all tables joined; the good ones are in. FC_BODY_ERROR without an ID.
    Fcodes initFromString(const std::string& text);

    /// Replaces all tables by the file's, and ends clean. FC_NO_SUCH_NAME when it cannot be opened
    /// and FC_UNAVAILABLE when it is empty, the tables then stay; else as initFromString().
    Fcodes load(const std::string& file);

    /// Writes the text to the file: a crash leaves the old file or the new one, whole. FC_OK, also
    /// when writing failed, which is logged.
    Fcodes store(const std::string& file) const;

    Fcodes rollbackChanges();
    bool isChanged() const { return getState() != STATE_CLEAN; }

    const std::string& getId() const { return mId; }
    void setId(const std::string& id) { mId = id; }
    const std::string& getVersion() const { return mVersion; }
    void setVersion(const std::string& version) { mVersion = version; }
    unsigned getState() const { return mState; }
    void setState(unsigned bits) { mState = bits; }
    void addState(unsigned bits) { mState |= bits; }

    DataTable* getTable(const std::string& name) const;
    void addTable(const std::string& name, DataTable* table);
    std::unique_ptr<DataTable> removeTable(const std::string& name);
    std::unique_ptr<DataTable> removeTable(const DataTable* table);

    /// Frees all tables.
    void clearTable();
    void cleanUpRelations() { clearTable(); }

    /// The tables in the order in which they were added. The map and the list hold the same tables:
    /// the List operations are those above, under the table's own id.
    TableList::const_iterator getTableListBegin() const { return mTableList.begin(); }
    TableList::const_iterator getTableListEnd() const { return mTableList.end(); }
    void addTableList(DataTable* table);
    std::unique_ptr<DataTable> removeTableList(const DataTable* table);
    void clearTableList() { clearTable(); }

    /// The committed value of a cell: FC_NO_SUCH_NAME when table, row or item is missing.
    Fcodes getIntParam(const std::string& table, int rowId, const std::string& item,
                       int* value) const;
    Fcodes getStringParam(const std::string& table, int rowId, const std::string& item,
                          std::string* value) const;

    /// As DataTable's; 0 also for an unknown table.
    int getFirstRowIndex(const std::string& table) const;
    int getNextRowIndex(const std::string& table, int rowId) const;

    /// Takes over what the reference has, and leaves the set modified if a table came or went:
    ///  - with `addTables`, copies of tables that only the reference has; theirs is the result;
    ///  - without `keepTables`, tables that the reference lacks are removed;
    ///  - tables that both have are merged by DataTable::update() with the last four flags.
    Fcodes update(const DataSet& reference, bool keepTables, bool addTables, bool keepColumns,
                  bool mergeColumns, bool copyRows, bool reuse);

private:
    friend class DataTable;

    struct Entry {
        std::unique_ptr<DataTable> table;
        TableList::iterator listed;
    };
    using TableMap = std::map<std::string, Entry>;

    void releaseTable(DataTable& table);
    std::unique_ptr<DataTable> takeTable(TableMap::iterator place);

    Fcodes addCopy(const std::string& name, DataTable& table);
    void dropTablesAbsentFrom(const DataSet& reference);

    std::string mId;
    std::string mVersion = "0";
    std::atomic<unsigned> mState = STATE_ADDED; // tables write it, each under a lock of its own
    TableMap mTables;
    TableList mTableList; // the same tables
};
