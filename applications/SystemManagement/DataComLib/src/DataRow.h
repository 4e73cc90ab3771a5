#pragma once

// One row of a table, or one instance of an object: items by name, and in the order in which they
// were added. It owns its items. The table or object that holds it owns the row; a row in neither
// belongs to its maker.
//
// Not locked: a row in a table or object is used under lock() of that one, all operations included.

#include "DataItem.h"
#include "Fcodes.h"
#include "StateBits.h"

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>

class DataObject;
class DataTable;

class DataRow
{
public:
    /// In the order in which they were added.
    using ItemList = std::list<DataItem*>;

    /// A row without items, STATE_ADDED.
    explicit DataRow(int id) : mId(id) {}

    /// Leaves its table or object and frees its items.
    virtual ~DataRow();

    DataRow(const DataRow&) = delete;
    DataRow& operator=(const DataRow&) = delete;

    /// Do the same to each item, then set the row's state: clean, STATE_MODIFIED, clean. The items'
    /// results joined. touch() also marks the table or object and the data set above modified.
    virtual Fcodes acceptChanges();
    virtual Fcodes touch();
    virtual Fcodes untouch();

    /// Replaces `out` by the row's element, with its items in their order, and returns `out`.
    virtual std::string& toString(std::string& out) const;

    /// Reads what toString() writes: the id, and values into the items that the row has; no state
    /// changes. FC_NO_SUCH_NAME when an item of the text is not in the row; the others are read all
    /// the same. A text without an ID, items without name or value, and values that an enumeration
    /// does not have are no error: these change nothing.
    Fcodes initFromString(const std::string& text);

    /// Sets the state of the row and its items to clean; pending values stay, see DataItem. FC_OK.
    Fcodes rollbackChanges();

    /// The number that toString() writes. The row's place in its table does not follow setId().
    int getId() const { return mId; }
    void setId(int id) { mId = id; }

    /// An instance of an object has a key, which toString() writes instead of the id; it may be
    /// empty. The row's place in its object does not follow setKey(). Other rows have none: "". The
    /// reference is valid until setKey(), clearKey() or the end of the row.
    const std::string& getKey() const { return mKey; }
    void setKey(const std::string& key);
    void clearKey();

    /// setState() changes the row alone. addState() ORs the bits in and, unless the state is then
    /// clean, marks the table or object and the data set above modified.
    unsigned getState() const { return mState; }
    void setState(unsigned bits);
    void addState(unsigned bits);

    /// The item stays the row's; null when there is none.
    DataItem* getDataItem(std::string_view name) const;

    /// Takes the item over, out of the row in which it was, and frees an item that had the name;
    /// null is ignored.
    void addDataItem(const std::string& name, DataItem* item);

    /// Hands the item back: drop the result and it is freed. Null when it is not in this row.
    std::unique_ptr<DataItem> removeDataItem(const std::string& name);
    std::unique_ptr<DataItem> removeDataItem(DataItem* item);

    /// The items in the order in which they were added. Adding or removing one leaves iterators to
    /// the others valid.
    ItemList::iterator getDataItemListBegin() { return mItemList.begin(); }
    ItemList::iterator getDataItemListEnd() { return mItemList.end(); }
    ItemList::const_iterator getDataItemListBegin() const { return mItemList.begin(); }
    ItemList::const_iterator getDataItemListEnd() const { return mItemList.end(); }

    /// All three free all items; the row stays where it is.
    void clearDataItem();
    void clearDataItemList() { clearDataItem(); }
    void cleanUpRelations() { clearDataItem(); }

    /// The row's side of DataItem::setRow(): the item's link to its row is left as it is. Adding
    /// takes over an item that is not in this row yet; removing gives it up without freeing it.
    void _addDataItem(const std::string& name, DataItem* item);
    void _removeDataItem(const std::string& name);
    void _removeDataItem(DataItem* item);

private:
    template <typename Traits>
    friend class KeyedRows;

    using ItemMap = std::map<std::string, std::unique_ptr<DataItem>, std::less<>>;

    void setOwner(DataTable* table) { mTable = table; }
    void setOwner(DataObject* object) { mObject = object; }
    void leaveOwner();

    ItemMap::iterator find(const DataItem* item);
    DataItem* release(ItemMap::iterator place);
    std::unique_ptr<DataItem> take(ItemMap::iterator place);
    Fcodes readItem(std::string_view segment);

    int mId;
    bool mHasKey = false;
    std::string mKey;
    unsigned mState = STATE_ADDED;
    ItemMap mItems;
    ItemList mItemList; // the same items
    DataTable* mTable = nullptr;
    DataObject* mObject = nullptr;
};
