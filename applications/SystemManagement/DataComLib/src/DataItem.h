#pragma once

// One cell: a committed and a pending value, each as an integer and as text, and its state bits.
// The row that holds an item owns it; one in no row is its maker's. It points at the column that
// describes it and keeps that column alive. Not locked: the row's table or object is the lock.

#include "DataColumn.h"
#include "StateBits.h"

#include <memory>
#include <string>

class DataRow;

class DataItem
{
public:
    /// In no row, and with the default value of its column if it has one.
    DataItem() = default;
    explicit DataItem(DataColumn* column);

    /// Copies values and column; the copy is new (STATE_ADDED) and in no row.
    DataItem(const DataItem& other);
    DataItem& operator=(const DataItem&) = delete;

    /// Leaves its row, if it is in one.
    virtual ~DataItem();

    /// The pending values become the committed ones; FC_OK.
    virtual Fcodes acceptChanges();

    /// Only the state changes: to modified, or to clean. FC_OK.
    virtual Fcodes touch();
    virtual Fcodes untouch();

    /// A copy; the caller owns it.
    virtual DataItem* clone() const;

    /// The committed values.
    virtual int getIntVal() const { return mIntVal; }
    virtual const std::string& getStrVal() const { return mStrVal; }

    /// Takes the column and its default value.
    virtual Fcodes init(DataColumn* column);

    /// The item's element with the committed text, in place of what `out` holds; returns `out`.
    virtual std::string& toString(std::string& out) const;

    /// Takes the committed value of such an element, whatever name that has. FC_BODY_ERROR when
    /// Name or Value is missing, else the result of initValue().
    Fcodes initFromString(const std::string& text);

    /// Clears the state and nothing else.
    Fcodes rollbackChanges();

    /// The pending values.
    int getIntVal_copy() const { return mNewIntVal; }
    const std::string& getStrVal_copy() const { return mNewStrVal; }

    unsigned getState() const { return mState; }
    void setState(unsigned bits) { mState = bits; }
    void addState(unsigned bits) { mState |= bits; }

    /// Name, type and access are the column's; an item without one has those of a new column.
    const std::string& getId() const { return described().getName(); }
    int getType() const { return described().getType(); }
    int getAccess() const { return described().getAccess(); }

    /// init: both the committed and the pending value, state untouched. set: the pending value;
    /// the item, its row and all above are then modified. A failure (FC_BAD_VALUE) changes nothing.
    void initIntVal(int value);
    void initStrVal(const std::string& text);
    Fcodes initValue(int value);
    Fcodes initValue(const std::string& text);
    void initValue(const DataItem& other);
    Fcodes resetValue();

    void setIntVal(int value);
    void setStrVal(const std::string& text);
    Fcodes setValue(int value);
    Fcodes setValue(const std::string& text);
    void setValue(const DataItem& other);

    DataColumn* getColumn() const { return mColumn.get(); }
    void setColumn(DataColumn* column);

    /// Moves the item into the row, under its own name; the row then owns it. With null it leaves
    /// its row, and the caller owns it.
    DataRow* getRow() const { return mRow; }
    void setRow(DataRow* row);

    /// Leaves row and column; the caller then owns the item.
    void cleanUpRelations();

private:
    friend class DataRow;

    void _setRow(DataRow* row);
    void __setRow(DataRow* row);
    void _clearRow() { mRow = nullptr; }

    const DataColumn& described() const;
    void markModified();

    int mIntVal = 0;
    int mNewIntVal = 0;
    unsigned mState = STATE_ADDED;
    std::string mStrVal;
    std::string mNewStrVal;
    DataRow* mRow = nullptr;
    std::shared_ptr<DataColumn> mColumn; // shares it with its table, or just points at it
};
