#pragma once

// One row of a table, or one instance of an object: items by name, and in the order in which they
// came. It owns its items; the table or object that holds it owns the row, and one in neither is
// its maker's. Not locked: use it inside lock()/unlock() of the table or object.

#include "DataItem.h"
#include "Fcodes.h"
#include "StateBits.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class DataObject;
class DataTable;

class DataRow
{
public:
    using ItemList = std::vector<DataItem*>;

    explicit DataRow(int id) : mId(id) {}

    /// Leaves its table or object.
    virtual ~DataRow();

    DataRow(const DataRow&) = delete;
    DataRow& operator=(const DataRow&) = delete;

    /// Each item in turn, then the row itself; the items' results joined. touch() marks the table
    /// or object modified as well.
    virtual Fcodes acceptChanges();
    virtual Fcodes touch();
    virtual Fcodes untouch();

    /// The row's element with its items in their order, in place of what `out` holds; returns
    /// `out`.
    virtual std::string& toString(std::string& out) const;

    /// Takes the row id and the values of the items named in the text, states untouched.
    /// FC_NO_SUCH_NAME when an item is not in the row; the others are read all the same.
    Fcodes initFromString(const std::string& text);

    Fcodes rollbackChanges();

    /// The id is what the text shows; the row's place in its table does not follow it. An instance
    /// has a key as well, which its text shows instead.
    int getId() const { return mId; }
    void setId(int id) { mId = id; }
    const std::string& getKey() const { return mKey; }
    void setKey(const std::string& key) { mKey = key; }

    /// Adding a bit marks the table or object modified, and the data set above.
    unsigned getState() const { return mState; }
    void setState(unsigned bits) { mState = bits; }
    void addState(unsigned bits);

    /// Adding takes the item over, out of the row in which it was; an item that has the name
    /// already is freed. Removing hands the item back: drop the result and it is freed.
    DataItem* getDataItem(std::string_view name) const;
    void addDataItem(const std::string& name, DataItem* item);
    std::unique_ptr<DataItem> removeDataItem(const std::string& name);
    std::unique_ptr<DataItem> removeDataItem(DataItem* item);

    ItemList::const_iterator getDataItemListBegin() const { return mItemList.begin(); }
    ItemList::const_iterator getDataItemListEnd() const { return mItemList.end(); }

    /// Frees all items; the row stays where it is.
    void clearDataItem();
    void clearDataItemList() { clearDataItem(); }
    void cleanUpRelations() { clearDataItem(); }

private:
    friend class DataItem;
    template <typename Traits>
    friend class KeyedRows;

    void _addDataItem(const std::string& name, DataItem* item);
    void _removeDataItem(DataItem* item);

    void belongTo(DataTable* table) { mTable = table; }
    void belongTo(DataObject* object) { mObject = object; }
    void leave();

    Fcodes readItem(std::string_view segment);

    int mId;
    std::string mKey;
    unsigned mState = STATE_ADDED;
    std::map<std::string, std::unique_ptr<DataItem>, std::less<>> mItems;
    ItemList mItemList; // the same items
    DataTable* mTable = nullptr;
    DataObject* mObject = nullptr;
};
