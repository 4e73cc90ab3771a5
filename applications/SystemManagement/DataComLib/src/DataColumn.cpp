#include "DataColumn.h"

#include "DbgLine.h"
#include "MessageText.h"

namespace
{

constexpr char kUnit[] = "DataColumn";
constexpr std::size_t npos = std::string::npos;

const char* accessText(int access)
{
    return access == DataColumn::RW ? "RW" : access == DataColumn::WO ? "WO" : "RO";
}

const char* typeText(int type)
{
    return type == DataColumn::INT ? "int" : type == DataColumn::ENUM ? "enum" : "str";
}

int accessCode(const std::string& text, int unknown)
{
    return text == "RO"   ? DataColumn::RO
           : text == "RW" ? DataColumn::RW
           : text == "WO" ? DataColumn::WO
                          : unknown;
}

int typeCode(const std::string& text)
{
    return text == "int" ? DataColumn::INT : text == "enum" ? DataColumn::ENUM : DataColumn::STR;
}

} // namespace

void DataColumn::init(const std::string& name, int access, int type)
{
    mName = name;
    mAccess = access;
    mType = type;
    mDefVal = 0;
}

std::string& DataColumn::toString(std::string& out) const
{
    out.assign("\t\t\t<Column Name=\"").append(mName);
    out.append("\" Access=\"").append(accessText(mAccess));
    out.append("\" Type=\"").append(typeText(mType));
    out.append("\" Value=\"").append(std::to_string(mDefVal)).append("\" ");
    if (mValueTexts.empty())
        return out.append("/>\n");

    out.append(" >\n");
    for (const auto& [index, text] : mValueTexts) {
        out.append("\t\t\t\t<Value Index=\"").append(std::to_string(index));
        out.append("\" Text=\"").append(text).append("\" />\n");
    }
    return out.append("\t\t\t</Column>\n");
}

Fcodes DataColumn::initFromString(const std::string& text)
{
    std::string value;
    if (getPropertyValue(text, 0, "Name", mName) == npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags Name in:\n" << text;
        return FC_BODY_ERROR;
    }
    if (getPropertyValue(text, 0, "Access", value) == npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags Access in:\n" << text;
        return FC_BODY_ERROR;
    }
    mAccess = accessCode(value, mAccess);
    if (getPropertyValue(text, 0, "Type", value) == npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags Type in:\n" << text;
        return FC_BODY_ERROR;
    }
    mType = typeCode(value);
    if (getPropertyValue(text, 0, "Value", value) == npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags Value in:\n" << text;
        return FC_BODY_ERROR;
    }
    mDefVal = textToInt(value);

    SegmentIterator values(text, "Value");
    std::string_view segment;
    while (values.next(segment))
        readValue(std::string(segment));
    return FC_OK;
}

void DataColumn::readValue(const std::string& segment)
{
    std::string index;
    std::string text;
    if (getPropertyValue(segment, 0, "Index", index) == npos)
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags Index in:\n" << segment;
    else if (getPropertyValue(segment, 0, "Text", text) == npos)
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found tags Text in:\n" << segment;
    else
        addValue(textToInt(index), text);
}

void DataColumn::addValue(int index, const std::string& text)
{
    mValueTexts[index] = text;
    mValueIndexes[text] = index;
}

bool DataColumn::getValueText(int index, std::string& text) const
{
    const auto found = mValueTexts.find(index);
    if (found == mValueTexts.end())
        return false;
    text = found->second;
    return true;
}

bool DataColumn::getValueIndex(const std::string& text, int& index) const
{
    const auto found = mValueIndexes.find(text);
    if (found == mValueIndexes.end())
        return false;
    index = found->second;
    return true;
}

bool DataColumn::isEqualTo(const DataColumn& other) const
{
    std::string mine;
    std::string theirs;
    return toString(mine) == other.toString(theirs);
}
