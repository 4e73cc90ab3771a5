#pragma once

// One column of a table, or one parameter of an object: its name, type, access right, default and,
// for an enumeration, the list of its values.
//
// A column made with `new` belongs to the table or object to which it is added. It is freed when it
// has left that table and no item points at it any more; the exception is
// DataTable::replaceColumn(), which hands it to the caller. A column on the stack, or one that was
// never added, must outlive the items that point at it.
//
// Not locked: inside a table or object, use it under that one's lock().

#include "Fcodes.h"

#include <map>
#include <memory>
#include <string>

class DataColumn : public std::enable_shared_from_this<DataColumn>
{
public:
    /// The codes of types and access rights, in files too: RO is for reading only, WO for writing.
    enum Type : int { INT = 1, ENUM = 2, STR = 3 };
    enum Access : int { RO = 1, RW = 2, WO = 3 };

    /// No name, STR, RO, no values, default 0. A copy belongs to the caller.
    DataColumn() = default;
    DataColumn(const DataColumn&) = default;
    DataColumn& operator=(const DataColumn&) = default;
    virtual ~DataColumn() = default;

    /// Sets name, access and type, and the default to 0; the values stay as they are. The codes are
    /// not checked: toString() writes an unknown access as "RO" and an unknown type as "str".
    virtual void init(const std::string& name, int access, int type);

    /// Replaces `out` by the column's element and returns `out`. No character is escaped: a name or
    /// value text with a double quote or a ">" is not read back.
    virtual std::string& toString(std::string& out) const;

    /// Reads what toString() writes. FC_BODY_ERROR when Name, Access, Type or Value is missing; the
    /// attributes before the missing one have then been taken. An unknown access changes nothing,
    /// an unknown type gives STR, a default that is no number 0. The values of the text are added
    /// to those already here; one without index or text is logged and left out.
    Fcodes initFromString(const std::string& text);

    /// As stored, not checked. A table or object finds the column under the name that was given to
    /// addColumns(), whatever setName() says later.
    const std::string& getName() const { return mName; }
    void setName(const std::string& name) { mName = name; }

    /// A Type, an Access; the default is the number, and for ENUM the index of the value.
    int getType() const { return mType; }
    void setType(int type) { mType = type; }
    int getAccess() const { return mAccess; }
    void setAccess(int access) { mAccess = access; }
    int getDefVal() const { return mDefVal; }
    void setDefVal(int value) { mDefVal = value; }

    /// The values of an enumeration. Adding overwrites the text of the index and the index of the
    /// text. The look-ups return false and leave their output alone when they find nothing.
    void addValue(int index, const std::string& text);
    bool getValueText(int index, std::string& text) const;
    bool getValueIndex(const std::string& text, int& index) const;

    /// True when both columns have the same element, byte for byte.
    bool isEqualTo(const DataColumn& other) const;

private:
    void readValue(const std::string& segment);

    std::string mName;
    int mType = STR;
    int mAccess = RO;
    std::map<int, std::string> mValueTexts;
    std::map<std::string, int> mValueIndexes;
    int mDefVal = 0;
};
