#include "DataRow.h"

#include "DataObject.h"
#include "DataTable.h"
#include "DbgLine.h"
#include "MessageText.h"

#include <algorithm>

namespace
{

constexpr char kUnit[] = "DataRow";
constexpr std::size_t npos = std::string::npos;

} // namespace

DataRow::~DataRow()
{
    leaveOwner();
    clearDataItem();
}

Fcodes DataRow::acceptChanges()
{
    Fcodes result = FC_OK;
    for (DataItem* item : mItemList)
        result |= item->acceptChanges();
    setState(STATE_CLEAN);
    return result;
}

Fcodes DataRow::touch()
{
    Fcodes result = FC_OK;
    for (DataItem* item : mItemList)
        result |= item->touch();
    setState(STATE_CLEAN);
    addState(STATE_MODIFIED);
    return result;
}

Fcodes DataRow::untouch()
{
    Fcodes result = FC_OK;
    for (DataItem* item : mItemList)
        result |= item->untouch();
    setState(STATE_CLEAN);
    return result;
}

std::string& DataRow::toString(std::string& out) const
{
    out.assign("\t\t\t<Row ID=\"").append(mHasKey ? mKey : std::to_string(mId));
    out.append("\" >\n");
    std::string element;
    for (const DataItem* item : mItemList)
        out.append(item->toString(element));
    return out.append("\t\t\t</Row>\n");
}

Fcodes DataRow::initFromString(const std::string& text)
{
    std::string id;
    const std::size_t idEnd = getPropertyValue(text, 0, "ID", id);
    if (idEnd == npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags ID in:\n" << text;
        // Kept on purpose: stored files count on a row without an ID being no error.
        return FC_OK;
    }
    mId = textToInt(id);

    Fcodes result = FC_OK;
    SegmentIterator items(text, "Item", idEnd);
    std::string_view segment;
    while (items.next(segment))
        result |= readItem(segment);
    return result;
}

Fcodes DataRow::readItem(std::string_view segment)
{
    std::string_view name;
    std::string_view value;
    if (findPropertyValue(segment, 0, "Name", name) == npos ||
        findPropertyValue(segment, 0, "Value", value) == npos)
        return FC_OK;

    DataItem* item = getDataItem(name);
    if (item == nullptr) {
        DBG_LOG(SEV_ERROR) << "initFromString: No item in row with ID=" << name;
        return FC_NO_SUCH_NAME;
    }
    // A text that is no longer among an enumeration's is reported by the item, which keeps its
    // default. The row is good all the same: one value must not cost a whole table.
    item->initValue(std::string(value));
    return FC_OK;
}

Fcodes DataRow::rollbackChanges()
{
    Fcodes result = FC_OK;
    for (DataItem* item : mItemList)
        result |= item->rollbackChanges();
    setState(STATE_CLEAN);
    return result;
}

void DataRow::setKey(const std::string& key)
{
    mHasKey = true;
    mKey = key;
}

void DataRow::clearKey()
{
    mHasKey = false;
    mKey.clear();
}

void DataRow::setState(unsigned bits)
{
    const bool undeleted = (mState & ~bits & STATE_DELETED) != 0;
    mState = bits;
    if (undeleted && mTable != nullptr)
        mTable->forgetDeletedRows();
}

void DataRow::addState(unsigned bits)
{
    mState |= bits;
    if (mState == STATE_CLEAN)
        return;
    if (mTable != nullptr)
        mTable->setState(STATE_MODIFIED);
    if (mObject != nullptr)
        mObject->setState(STATE_MODIFIED);
}

DataItem* DataRow::getDataItem(std::string_view name) const
{
    const auto found = mItems.find(name);
    return found == mItems.end() ? nullptr : found->second.get();
}

void DataRow::addDataItem(const std::string& name, DataItem* item)
{
    if (item == nullptr)
        return;
    item->_setRow(nullptr);
    _addDataItem(name, item);
    item->__setRow(this);
}

std::unique_ptr<DataItem> DataRow::removeDataItem(const std::string& name)
{
    return take(mItems.find(name));
}

std::unique_ptr<DataItem> DataRow::removeDataItem(DataItem* item) { return take(find(item)); }

void DataRow::clearDataItem()
{
    for (DataItem* item : mItemList)
        item->_clearRow();
    mItemList.clear();
    mItems.clear();
}

void DataRow::_addDataItem(const std::string& name, DataItem* item)
{
    if (item == nullptr || getDataItem(name) == item)
        return;
    const auto old = take(mItems.find(name)); // freed last: `name` may be its column's
    mItems.emplace(name, item);
    mItemList.push_back(item);
}

void DataRow::_removeDataItem(const std::string& name) { release(mItems.find(name)); }

void DataRow::_removeDataItem(DataItem* item) { release(find(item)); }

DataRow::ItemMap::iterator DataRow::find(const DataItem* item)
{
    return std::find_if(mItems.begin(), mItems.end(),
                        [item](const auto& entry) { return entry.second.get() == item; });
}

DataItem* DataRow::release(ItemMap::iterator place)
{
    if (place == mItems.end())
        return nullptr;
    DataItem* const item = place->second.release();
    mItems.erase(place);
    std::erase(mItemList, item);
    return item;
}

std::unique_ptr<DataItem> DataRow::take(ItemMap::iterator place)
{
    std::unique_ptr<DataItem> item(release(place));
    if (item != nullptr && item->getRow() == this)
        item->_clearRow();
    return item;
}

void DataRow::leaveOwner()
{
    if (mTable != nullptr)
        mTable->releaseRow(*this);
    if (mObject != nullptr)
        mObject->releaseRow(*this);
}
