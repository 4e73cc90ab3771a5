#include "DataObject.h"

#include "DbgLine.h"
#include "MessageText.h"

namespace
{

constexpr char kUnit[] = "DataObject";

} // namespace

void ObjectTraits::assignKey(DataRow& row, const std::string& key)
{
    row.setId(textToInt(key));
    row.setKey(key);
}

void ObjectTraits::Log::enumValueReset(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceParameter: enum column=" << name
                      << " Set default instead of val=" << item.getStrVal();
}

void ObjectTraits::Log::intValueReset(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceParameter: int column=" << name
                      << " Set default instead of type=" << item.getType()
                      << " val=" << item.getStrVal();
}

void ObjectTraits::Log::valueKept(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceParameter: column=" << name << " Keep val=" << item.getStrVal();
}

void ObjectTraits::Log::columnChanged(const std::string& object, const DataColumn& column)
{
    DBG_LOG(SEV_WARN) << "update: dataObject=" << object << " column=" << column.getName()
                      << " changed. Replacing...";
}

void ObjectTraits::Log::copyingRow(const std::string& key)
{
    DBG_LOG(SEV_INFO) << "update: adding rowId=" << key;
}

void ObjectTraits::Log::copyingValue(const std::string& key, const DataColumn& column,
                                     const DataItem& value)
{
    DBG_LOG(SEV_INFO) << "newInstance: adding to rowId=" << key << " col=" << column.getName()
                      << " val=" << value.getIntVal() << " str=" << value.getStrVal();
}

void ObjectTraits::Log::nameMissing(const std::string& text)
{
    DBG_LOG(SEV_ERROR) << "initFromString: Not found Type in:" << text;
}

void ObjectTraits::Log::columnsMissing(const std::string& text)
{
    DBG_LOG(SEV_ERROR) << "initFromString: Not found Parameters in:" << text;
}

void ObjectTraits::Log::badColumn(Fcodes code)
{
    DBG_LOG(SEV_ERROR) << "initFromString: error in parameter fcode=" << Hex{code};
}

void ObjectTraits::Log::badRow(const std::string& key, Fcodes code)
{
    DBG_LOG(SEV_ERROR) << "initFromString: error in instance=" << key << " fcode" << Hex{code};
}

void ObjectTraits::Log::tooManyCells(std::size_t rows, std::size_t columns)
{
    DBG_LOG(SEV_ERROR) << "initFromString: too many cells, instances=" << rows
                       << " parameters=" << columns;
}

std::shared_ptr<DataColumn> DataObject::removeParameter(const std::string& name)
{
    return removeColumn(name);
}

std::shared_ptr<DataColumn> DataObject::removeParameter(const DataColumn* column)
{
    return removeColumn(column);
}

DataColumn* DataObject::replaceParameter(const std::string& name, DataColumn* column)
{
    return exchangeAndHandOver(name, column);
}

std::vector<std::string> DataObject::getParameters() const
{
    const std::lock_guard guard(mMutex);
    return mColumns.names();
}

std::vector<std::string> DataObject::getInstances() const
{
    const std::lock_guard guard(mMutex);
    std::vector<std::string> keys;
    keys.reserve(mRows.size());
    for (const auto& [key, row] : mRows)
        keys.push_back(key);
    return keys;
}

DataRow* DataObject::newInstance(const std::string& key, const DataRow* templateRow, bool reuse)
{
    return makeRow(key, templateRow, reuse);
}

void DataObject::update(const DataObject& reference, bool keepParameters, bool mergeParameters,
                        bool copyInstances, bool reuse)
{
    merge(reference, keepParameters, mergeParameters, copyInstances, reuse);
}
