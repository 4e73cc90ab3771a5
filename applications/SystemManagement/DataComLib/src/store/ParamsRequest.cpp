#include "store/ParamsRequest.h"

#include "DbgLine.h"

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

} // namespace

ParamsRequest::ParamsRequest(const char* prefix, const Json::Value& documents,
                             const Json::Value& request)
    : mLogPrefix(prefix), mDocuments(documents), mRequest(request), mText(request)
{
    const Json::Value* dataset = member(&request, "dataset");
    mNamesDataset = dataset != nullptr && dataset->isString();
    mDataset = mNamesDataset ? dataset->asString() : std::string();
}

const Json::Value* ParamsRequest::findComponent(const std::string& component) const
{
    return ::findComponent(mDocuments, mDataset, component);
}

const Json::Value* ParamsRequest::findInstances(const std::string& component) const
{
    return member(findComponent(component), "instances");
}

const Json::Value* ParamsRequest::findRow(const std::string& component, const RequestRow& row,
                                          Fcodes& result) const
{
    const Json::Value* instances = findInstances(component);
    const Json::Value* found = row.find(instances);
    if (found != nullptr)
        return found;

    result = FC_NO_SUCH_NAME;
    if (row.byIndex() && (instances == nullptr || !instances->isArray()))
        DBG_LOG(SEV_ERROR) << mLogPrefix << mText << " comp=" << component
                           << " values are not array (by index).";
    else if (row.byIndex())
        DBG_LOG(SEV_ERROR) << mLogPrefix << mText << " comp=" << component
                           << " instances invalid index=" << row.index();
    else if (instances == nullptr || !instances->isObject())
        DBG_LOG(SEV_ERROR) << mLogPrefix << mText << " values are not objects (by rowKey)";
    else
        DBG_LOG(SEV_ERROR) << mLogPrefix << mText << " doesn't have member=" << row.key();
    return nullptr;
}
