#include "DataItem.h"

#include "DataRow.h"
#include "DbgLine.h"
#include "MessageText.h"

namespace
{

constexpr char kUnit[] = "DataItem";
constexpr std::size_t npos = std::string::npos;

/// Shares a column that a table or an object owns; just points at any other.
std::shared_ptr<DataColumn> shareColumn(DataColumn* column)
{
    if (column == nullptr)
        return nullptr;
    if (auto owned = column->weak_from_this().lock())
        return owned;
    return {std::shared_ptr<DataColumn>(), column};
}

} // namespace

DataItem::DataItem(DataColumn* column) : mColumn(shareColumn(column)) { resetValue(); }

DataItem::DataItem(const DataItem& other)
    : mIntVal(other.mIntVal), mNewIntVal(other.mNewIntVal), mStrVal(other.mStrVal),
      mNewStrVal(other.mNewStrVal), mColumn(other.mColumn)
{
}

DataItem::~DataItem() { cleanUpRelations(); }

Fcodes DataItem::acceptChanges()
{
    mStrVal = mNewStrVal;
    mIntVal = mNewIntVal;
    mState = STATE_CLEAN;
    return FC_OK;
}

Fcodes DataItem::touch()
{
    mState = STATE_MODIFIED;
    return FC_OK;
}

Fcodes DataItem::untouch()
{
    mState = STATE_CLEAN;
    return FC_OK;
}

DataItem* DataItem::clone() { return new DataItem(*this); }

Fcodes DataItem::init(DataColumn* column)
{
    setColumn(column);
    return resetValue();
}

std::string& DataItem::toString(std::string& out) const
{
    out.assign("\t\t\t<Item Name=\"").append(getId());
    return out.append("\" Value=\"").append(mStrVal).append("\" />\n");
}

Fcodes DataItem::initFromString(const std::string& text)
{
    std::string value;
    if (getPropertyValue(text, 0, "Name", value) == npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags Name in:\n" << text;
        return FC_BODY_ERROR;
    }
    if (getPropertyValue(text, 0, "Value", value) == npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags Value in:\n" << text;
        return FC_BODY_ERROR;
    }
    return initValue(value);
}

Fcodes DataItem::rollbackChanges()
{
    // Kept on purpose: applications count on pending values surviving a rollback, so that the
    // next accept still commits them.
    mState = STATE_CLEAN;
    return FC_OK;
}

void DataItem::initIntVal(int value) { mIntVal = mNewIntVal = value; }

void DataItem::initStrVal(const std::string& text)
{
    mStrVal = text;
    mNewStrVal = text;
}

Fcodes DataItem::initValue(int value)
{
    std::string text = std::to_string(value);
    // Kept on purpose: log readers count on this error for each str item that is made or reset, and
    // applications on its texts staying as they were: a str column has no values to look up.
    if (getType() != DataColumn::INT && !columnOrDefault().getValueText(value, text)) {
        DBG_LOG(SEV_ERROR) << "initValue: item=" << getId() << " ENUM not found ind=" << value;
        return FC_BAD_VALUE;
    }
    initStrVal(text);
    initIntVal(value);
    return FC_OK;
}

Fcodes DataItem::initValue(const std::string& text)
{
    int value = getType() == DataColumn::INT ? textToInt(text) : 0;
    if (getType() == DataColumn::ENUM && !columnOrDefault().getValueIndex(text, value)) {
        DBG_LOG(SEV_ERROR) << "initValue: item=" << getId() << " ENUM not found text=" << text;
        return FC_BAD_VALUE;
    }
    initStrVal(text);
    initIntVal(value);
    return FC_OK;
}

void DataItem::initValue(const DataItem& other)
{
    initIntVal(other.getIntVal());
    initStrVal(other.getStrVal());
}

Fcodes DataItem::resetValue() { return initValue(columnOrDefault().getDefVal()); }

void DataItem::setIntVal(int value)
{
    mNewIntVal = value;
    markModified();
}

void DataItem::setStrVal(const std::string& text)
{
    mNewStrVal = text;
    markModified();
}

void DataItem::markModified()
{
    addState(STATE_MODIFIED);
    if (mRow != nullptr)
        mRow->addState(STATE_MODIFIED);
}

Fcodes DataItem::setValue(int value)
{
    // Kept on purpose: peers that read the text count on it being made from the committed value, so
    // that after one call it lags the pending integer by one step.
    std::string text = std::to_string(getIntVal());
    if (getType() != DataColumn::INT && !columnOrDefault().getValueText(getIntVal(), text)) {
        DBG_LOG(SEV_WARN) << "setValue(int): item=" << getId() << " ENUM not found ind=" << value;
        return FC_BAD_VALUE;
    }
    setStrVal(text);
    setIntVal(value);
    return FC_OK;
}

Fcodes DataItem::setValue(const std::string& text)
{
    int value = getType() == DataColumn::INT ? textToInt(text) : 0;
    if (getType() == DataColumn::ENUM && !columnOrDefault().getValueIndex(text, value)) {
        DBG_LOG(SEV_ERROR) << "setValue(str): item=" << getId() << " ENUM not found text=" << text;
        return FC_BAD_VALUE;
    }
    setStrVal(text);
    setIntVal(value);
    return FC_OK;
}

void DataItem::setValue(const DataItem& other)
{
    setIntVal(other.getIntVal());
    setStrVal(other.getStrVal());
}

void DataItem::setColumn(DataColumn* column) { mColumn = shareColumn(column); }

void DataItem::setRow(DataRow* row)
{
    if (row == mRow)
        return;
    if (row != nullptr)
        row->_addDataItem(getId(), this);
    _setRow(row);
}

void DataItem::_setRow(DataRow* row)
{
    if (mRow != nullptr)
        mRow->_removeDataItem(this);
    __setRow(row);
}

void DataItem::__setRow(DataRow* row)
{
    mRow = row;
    if (row != nullptr && mColumn.use_count() == 0)
        setColumn(getColumn()); // a table may own the column by now
}

void DataItem::cleanUpRelations()
{
    _setRow(nullptr);
    mColumn.reset();
}

const DataColumn& DataItem::columnOrDefault() const
{
    static const DataColumn none;
    return mColumn ? *mColumn : none;
}
