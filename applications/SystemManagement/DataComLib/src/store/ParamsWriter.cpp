#include "store/ParamsWriter.h"

#include "DbgLine.h"
#include "store/PropertyRule.h"

#include <json/writer.h>

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

bool isObject(const Json::Value* value) { return value != nullptr && value->isObject(); }

} // namespace

ParamsWriter::ParamsWriter(const Json::Value& documents, Json::Value& changes,
                           const Json::Value& request)
    : ParamsRequest("setParams: ", documents, request), mChanges(changes)
{
}

Fcodes ParamsWriter::check()
{
    Fcodes result = checkRequest();
    if (result != FC_OK)
        return result;

    const Json::Value& components = *member(&mRequest, "components");
    for (auto it = components.begin(); it != components.end(); ++it)
        if (const Fcodes checkResult = checkComponent(it.name(), *it); checkResult != FC_OK)
            result = checkResult;
    return result;
}

void ParamsWriter::write()
{
    for (Write& write : mWrites)
        if (Json::Value* slot =
                address(write.component, write.row, write.property).findOrCreate(mChanges))
            *slot = std::move(write.value);
}

Fcodes ParamsWriter::checkRequest() const
{
    if (!namesDataset()) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " no key=dataset";
        return FC_BODY_ERROR;
    }
    if (!hasDataset()) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " No such dataset=" << mDataset;
        return FC_NO_SUCH_NAME;
    }
    if (!isObject(member(&mRequest, "components"))) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " no key=components";
        return FC_BODY_ERROR;
    }
    return FC_OK;
}

Fcodes ParamsWriter::checkComponent(const std::string& component, const Json::Value& wanted)
{
    if (findComponent(component) == nullptr) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " No such component=" << component;
        return FC_NO_SUCH_NAME;
    }
    if (member(findComponent(component), "properties") == nullptr) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " No key=properties";
        return FC_NO_SUCH_NAME;
    }
    if (findInstances(component) == nullptr) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " No key=instances";
        return FC_NO_SUCH_NAME;
    }

    const Json::Value* rows = member(&wanted, "rows");
    if (rows == nullptr || !rows->isArray()) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " no array key=rows";
        return FC_BODY_ERROR;
    }
    const Json::Value* values = member(&wanted, "properties");
    if (values != nullptr && !values->isObject()) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " properties is not an object";
        return FC_BODY_ERROR;
    }
    for (Json::ArrayIndex i = 0; i < rows->size(); ++i)
        if (const Fcodes result = checkRow(component, (*rows)[i], i, values); result != FC_OK)
            return result;
    return FC_OK;
}

Fcodes ParamsWriter::checkRow(const std::string& component, const Json::Value& element,
                              Json::ArrayIndex position, const Json::Value* values)
{
    if (element.isObject()) {
        values = member(&element, "properties");
        if (member(&element, "index") == nullptr || !isObject(values)) {
            DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component << " rows["
                               << position
                               << "] is not an Object || hasn't=index || hasn't=properties";
            return FC_BODY_ERROR;
        }
    }
    const std::optional<RequestRow> row = RequestRow::read(element);
    if (!row) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component << " rows["
                           << position << "] is neither int, nor string";
        return FC_BODY_ERROR;
    }
    if (values == nullptr) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component << " rows["
                           << position << "] No key=properties";
        return FC_BODY_ERROR;
    }

    if (!row->byIndex() && row->key().empty()) {
        // In the working copies the empty key would mean the single instance.
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " doesn't have member=";
        return FC_NO_SUCH_NAME;
    }
    Fcodes result = FC_OK;
    const Json::Value* instance = findRow(component, *row, result);
    for (auto it = values->begin(); result == FC_OK && it != values->end(); ++it)
        result = checkValue(component, *row, *instance, it.name(), *it);
    return result;
}

Fcodes ParamsWriter::checkValue(const std::string& component, const RequestRow& row,
                                const Json::Value& instance, const std::string& property,
                                const Json::Value& value)
{
    const Json::Value* definition = findDefinition(component, property);
    const Json::Value* current = member(&instance, property);
    if (definition == nullptr || current == nullptr) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " ind=" << row.instance() << " hasn't param=" << property;
        return FC_NO_SUCH_NAME;
    }
    const PropertyRule rule(definition);
    if (rule.isReadOnly()) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " param=" << property << " access=RO";
        return FC_ACCESS_DENIED;
    }
    Json::Value converted;
    const Fcodes result = rule.accept(value, *current, converted);
    if (result == FC_BAD_VALUE)
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " param=" << property << " enum mismatch value=" << value;
    else if (result != FC_OK)
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " param=" << property << " type mismatch";
    if (result != FC_OK)
        return result;
    if (!address(component, row, property).fits(mChanges)) {
        DBG_LOG(SEV_ERROR) << "setParams: " << mText << " comp=" << component
                           << " param=" << property << " ind=" << row.instance()
                           << " doesn't fit the working copy";
        return FC_WRONG_TYPE;
    }
    mWrites.push_back({component, row, property, std::move(converted)});
    return FC_OK;
}

const Json::Value* ParamsWriter::findDefinition(const std::string& component,
                                                const std::string& property) const
{
    return member(member(findComponent(component), "properties"), property);
}

ParamRef ParamsWriter::address(const std::string& component, const RequestRow& row,
                               const std::string& property) const
{
    return {mDataset, component, property, row.instance()};
}
