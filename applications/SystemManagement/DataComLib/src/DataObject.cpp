#include "DataObject.h"

#include "DbgLine.h"
#include "MessageText.h"

namespace
{

constexpr char kUnit[] = "DataObject";

} // namespace

void ObjectTraits::markKey(DataRow& row, const std::string& key)
{
    row.setId(textToInt(key));
    row.setKey(key);
}

void ObjectTraits::reportEnumLost(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceParameter: enum column=" << name
                      << " Set default instead of val=" << item.getStrVal();
}

void ObjectTraits::reportIntLost(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceParameter: int column=" << name
                      << " Set default instead of type=" << item.getType()
                      << " val=" << item.getStrVal();
}

void ObjectTraits::reportKept(const std::string& name, const DataItem& item)
{
    DBG_LOG(SEV_WARN) << "replaceParameter: column=" << name << " Keep val=" << item.getStrVal();
}

void ObjectTraits::reportColumnChanged(const std::string& object, const DataColumn& column)
{
    DBG_LOG(SEV_WARN) << "update: dataObject=" << object << " column=" << column.getName()
                      << " changed. Replacing...";
}

void ObjectTraits::reportRowCopied(const std::string& key)
{
    DBG_LOG(SEV_INFO) << "update: adding rowId=" << key;
}

void ObjectTraits::reportValueCopied(const std::string& key, const DataColumn& column,
                                     const DataItem& value)
{
    DBG_LOG(SEV_INFO) << "newInstance: adding to rowId=" << key << " col=" << column.getName()
                      << " val=" << value.getIntVal() << " str=" << value.getStrVal();
}

void ObjectTraits::reportNoName(const std::string& text)
{
    DBG_LOG(SEV_ERROR) << "initFromString: Not found Type in:" << text;
}

void ObjectTraits::reportNoColumns(const std::string& text)
{
    DBG_LOG(SEV_ERROR) << "initFromString: Not found Parameters in:" << text;
}

void ObjectTraits::reportBadColumn(Fcodes code)
{
    DBG_LOG(SEV_ERROR) << "initFromString: error in parameter fcode=" << Hex{code};
}

void ObjectTraits::reportBadRow(const std::string& key, Fcodes code)
{
    DBG_LOG(SEV_ERROR) << "initFromString: error in instance=" << key << " fcode" << Hex{code};
}

void ObjectTraits::reportTooManyCells(std::size_t rows, std::size_t columns)
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

std::shared_ptr<DataColumn> DataObject::replaceParameter(const std::string& name,
                                                         DataColumn* column)
{
    return exchangeColumn(name, column);
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

DataRow* DataObject::newInstance(const std::string& key, const DataRow* pattern, bool reuse)
{
    return makeRow(key, pattern, reuse);
}

void DataObject::update(const DataObject& reference, bool keepParameters, bool mergeParameters,
                        bool copyInstances, bool reuse)
{
    merge(reference, keepParameters, mergeParameters, copyInstances, reuse);
}
