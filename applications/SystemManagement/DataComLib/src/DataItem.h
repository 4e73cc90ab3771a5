#pragma once

// One cell: a committed and a pending value, each as an integer and as text, and state bits (see
// StateBits.h). The row that holds an item owns it; an item in no row belongs to its maker.
//
// An item points at the column that describes it. A column that a table or object owns lives at
// least as long as the items that point at it, unless replaceColumn() has handed it to a caller.
//
// Not locked: an item in a row is used under lock() of the row's table or object.

#include "DataColumn.h"
#include "StateBits.h"

#include <memory>
#include <string>

class DataRow;

class DataItem
{
public:
    /// STATE_ADDED, in no row and with no column: 0 and empty texts.
    DataItem() = default;

    /// As above, with the column and its default value. For a STR column, which has no default, and
    /// for null, which gives an item without a column, an error is logged and the values stay 0 and
    /// empty.
    explicit DataItem(DataColumn* column);

    /// Copies values and column; the copy is new (STATE_ADDED) and in no row.
    DataItem(const DataItem& other);
    DataItem& operator=(const DataItem&) = delete;

    /// Leaves its row, if it is in one.
    virtual ~DataItem();

    /// The pending values become the committed ones, the state clean. FC_OK.
    virtual Fcodes acceptChanges();

    /// Set the state to STATE_MODIFIED, or to clean, and nothing else: not the row's. FC_OK.
    virtual Fcodes touch();
    virtual Fcodes untouch();

    /// A copy made by the copy constructor; the caller owns it.
    virtual DataItem* clone();

    /// The committed values. The text is valid until the item is changed or freed.
    virtual int getIntVal() const { return mIntVal; }
    virtual const std::string& getStrVal() const { return mStrVal; }

    /// Takes the column, which may be null, and its default value; the result of resetValue().
    virtual Fcodes init(DataColumn* column);

    /// Replaces `out` by the item's element with the committed text and returns `out`. No character
    /// is escaped: a text with a double quote or a ">" is not read back.
    virtual std::string& toString(std::string& out) const;

    /// Takes the committed value out of such an element, whatever name that has. FC_BODY_ERROR when
    /// Name or Value is missing, else the result of initValue().
    Fcodes initFromString(const std::string& text);

    /// Sets the state to clean and nothing else: the pending values stay, and the next
    /// acceptChanges() commits them. FC_OK.
    Fcodes rollbackChanges();

    /// The pending values.
    int getIntVal_copy() const { return mNewIntVal; }
    const std::string& getStrVal_copy() const { return mNewStrVal; }

    /// The state is replaced, or ORed to; the row's state does not follow.
    unsigned getState() const { return mState; }
    void setState(unsigned bits) { mState = bits; }
    void addState(unsigned bits) { mState |= bits; }

    /// The name, type and access of the column; an item without one answers as a new DataColumn.
    const std::string& getId() const { return columnOrDefault().getName(); }
    int getType() const { return columnOrDefault().getType(); }
    int getAccess() const { return columnOrDefault().getAccess(); }

    /// Write one committed and pending value, which the column does not check; no state changes.
    void initIntVal(int value);
    void initStrVal(const std::string& text);

    /// Write the committed and the pending value, as integer and as text; no state changes.
    ///  - INT: the number and its decimal text, or the text and the number that it begins with;
    ///  - ENUM: one of the column's values, else FC_BAD_VALUE;
    ///  - STR: the text and 0; an integer gives FC_BAD_VALUE.
    /// FC_BAD_VALUE is logged and changes nothing. resetValue() writes the column's default.
    Fcodes initValue(int value);
    Fcodes initValue(const std::string& text);
    Fcodes resetValue();

    /// Copies the other's committed values, which the column does not check.
    void initValue(const DataItem& other);

    /// Write one pending value, which the column does not check, and mark the item and its row
    /// modified, and the table or object and the data set above. An item in no row is only marked.
    void setIntVal(int value);
    void setStrVal(const std::string& text);

    /// Write the pending value, as initValue() does, and mark as above. With an integer the pending
    /// text becomes that of the *committed* integer, so it lags by one step; it is also that one
    /// which an ENUM looks up. FC_BAD_VALUE is logged and changes nothing, marks included.
    Fcodes setValue(int value);
    Fcodes setValue(const std::string& text);

    /// Copies the other's committed values into the pending ones; the column does not check them.
    void setValue(const DataItem& other);

    /// The column, or null. Setting it changes no value, and not the name under which the row holds
    /// the item.
    DataColumn* getColumn() const { return mColumn.get(); }
    void setColumn(DataColumn* column);

    /// Moves the item into the row, under the item's name; the row then owns it and frees an item
    /// that had the name. With null it leaves its row, and the caller owns it.
    DataRow* getRow() const { return mRow; }
    void setRow(DataRow* row);

    /// The steps of setRow(), for callers that keep both sides of the link themselves: _setRow()
    /// takes the item out of its present row and sets the link, the others set the link and leave
    /// every row as it is. A row must not be freed while an item links to it without being in it.
    void _setRow(DataRow* row);
    void __setRow(DataRow* row);
    void _clearRow() { mRow = nullptr; }

    /// Leaves row and column; the caller then owns the item.
    void cleanUpRelations();

private:
    const DataColumn& columnOrDefault() const;
    void markModified();

    int mIntVal = 0;
    int mNewIntVal = 0;
    unsigned mState = STATE_ADDED;
    std::string mStrVal;
    std::string mNewStrVal;
    DataRow* mRow = nullptr;
    std::shared_ptr<DataColumn> mColumn; // without a share in a column that no table owns
};
