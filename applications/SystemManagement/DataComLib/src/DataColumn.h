#pragma once

// One column of a table, or one parameter of an object: its name, type, access right, default and,
// for an enumeration, its values. A column made with `new` belongs to the table or object to which
// it is given; items that point at it keep it alive beyond that, so none ever points at a freed
// column. One on the stack must outlive its items. Not locked: its table's lock guards it.

#include "Fcodes.h"

#include <map>
#include <memory>
#include <string>

class DataColumn : public std::enable_shared_from_this<DataColumn>
{
public:
    enum Type : int { INT = 1, ENUM = 2, STR = 3 };
    enum Access : int { RO = 1, RW = 2, WO = 3 };

    DataColumn() = default;
    DataColumn(const DataColumn&) = default;
    DataColumn& operator=(const DataColumn&) = default;
    virtual ~DataColumn() = default;

    /// Names the column and resets its default; values stay as they are.
    virtual void init(const std::string& name, int access, int type);

    /// The column's element, in place of what `out` holds; returns `out`. No character is escaped.
    virtual std::string& toString(std::string& out) const;

    /// Reads what toString() writes. FC_BODY_ERROR when Name, Access, Type or Value is missing;
    /// what was read before that stays. Values join those already here, incomplete ones are left
    /// out.
    Fcodes initFromString(const std::string& text);

    const std::string& getName() const { return mName; }
    void setName(const std::string& name) { mName = name; }
    int getType() const { return mType; }
    void setType(int type) { mType = type; }
    int getAccess() const { return mAccess; }
    void setAccess(int access) { mAccess = access; }
    int getDefVal() const { return mDefVal; }
    void setDefVal(int value) { mDefVal = value; }

    /// The values of an enumeration. The look-ups leave their output alone when they find nothing.
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
