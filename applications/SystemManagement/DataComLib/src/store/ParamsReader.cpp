#include "store/ParamsReader.h"

#include "DbgLine.h"

#include <vector>

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

std::vector<RequestRow> rowsOf(const Json::Value* instances)
{
    std::vector<RequestRow> rows;
    if (instances != nullptr && instances->isArray())
        for (Json::ArrayIndex index = 0; index < instances->size(); ++index)
            rows.emplace_back(static_cast<int>(index));
    else if (instances != nullptr && instances->isObject())
        for (auto it = instances->begin(); it != instances->end(); ++it)
            rows.emplace_back(it.name());
    return rows;
}

} // namespace

ParamsReader::ParamsReader(IDataSets& store, const Json::Value& documents,
                           const Json::Value& request, Json::Value& answer)
    : ParamsRequest("getParams: ", documents, request), mStore(store), mAnswer(answer)
{
}

Fcodes ParamsReader::run()
{
    if (!hasDataset()) {
        // Kept on purpose: log readers count on "rowKey" here, where the other requests say "key".
        DBG_LOG(SEV_ERROR) << "getParams: " << mText << " no rowKey=dataset or the dataset";
        return FC_BODY_ERROR;
    }
    mStore.onGetDataset(mDataset);
    mAnswer["dataset"] = mDataset;
    mAnswer["components"] = Json::Value(Json::objectValue);

    const Json::Value* wanted = member(&mRequest, "components");
    if (wanted == nullptr || wanted->empty()) {
        dumpComponents();
    } else if (!wanted->isObject()) {
        DBG_LOG(SEV_ERROR) << "getParams: " << mText << " components is not an object";
        return FC_BODY_ERROR;
    } else {
        for (auto it = wanted->begin(); it != wanted->end(); ++it)
            readComponent(it.name(), *it);
    }
    return mResult;
}

void ParamsReader::dumpComponents()
{
    const Json::Value* components = member(member(&mDocuments, mDataset), "components");
    if (components == nullptr || !components->isObject())
        return;
    for (const std::string& component : components->getMemberNames()) {
        mStore.onGetComponent(mDataset, component);
        dumpInstances(component);
    }
}

void ParamsReader::dumpInstances(const std::string& component)
{
    const Json::Value* instances = findInstances(component);
    mAnswer["components"][component]["instances"] =
        instances == nullptr ? Json::Value(Json::arrayValue) : *instances;
}

void ParamsReader::readComponent(const std::string& component, const Json::Value& wanted)
{
    if (findComponent(component) == nullptr) {
        DBG_LOG(SEV_ERROR) << "getParams: " << mText << " No such component=" << component;
        mResult = FC_NO_SUCH_NAME;
        return;
    }
    mStore.onGetComponent(mDataset, component);
    if (findInstances(component) == nullptr)
        DBG_LOG(SEV_ERROR) << "getParams: " << mText << " No Values in comp=" << component;
    if (!wanted.isObject() && !wanted.isNull()) {
        DBG_LOG(SEV_ERROR) << "getParams: " << mText << " comp=" << component
                           << " is not an object";
        mResult = FC_BODY_ERROR;
        return;
    }

    const Json::Value* rows = member(&wanted, "rows");
    const Json::Value* properties = member(&wanted, "properties");
    if (!isArrayOrAbsent(rows, " rows is not an array") ||
        !isArrayOrAbsent(properties, " properties is not an array"))
        return;
    if (rows == nullptr)
        readAllRows(component, properties);
    else
        for (Json::ArrayIndex i = 0; i < rows->size(); ++i)
            readRequested(component, (*rows)[i], i, properties);

    const Json::Value* instances = findInstances(component);
    if (instances == nullptr || !(instances->isObject() || instances->isArray()))
        DBG_LOG(SEV_ERROR) << "getParams: " << mText
                           << " instances are neither an object(by rowKey), nor an array(by index)";
}

bool ParamsReader::isArrayOrAbsent(const Json::Value* list, const char* complaint)
{
    if (list == nullptr || list->isArray())
        return true;
    DBG_LOG(SEV_ERROR) << "getParams: " << mText << complaint;
    mResult = FC_BODY_ERROR;
    return false;
}

void ParamsReader::readRequested(const std::string& component, const Json::Value& element,
                                 Json::ArrayIndex position, const Json::Value* properties)
{
    const std::optional<RequestRow> row = RequestRow::read(element);
    if (!row) {
        DBG_LOG(SEV_ERROR) << "getParams: " << mText << " rows[" << position
                           << "] is not int or string";
        mResult = FC_BODY_ERROR;
        return;
    }
    const Json::Value* ofRow = member(&element, "properties");
    if (isArrayOrAbsent(ofRow, " properties is not an array"))
        readRow(component, *row, ofRow == nullptr ? properties : ofRow);
}

void ParamsReader::readAllRows(const std::string& component, const Json::Value* properties)
{
    const Json::Value* instances = findInstances(component);
    const bool whole = properties == nullptr && instances != nullptr && instances->isArray();
    for (const RequestRow& row : rowsOf(instances)) {
        if (whole)
            callEntryHook(component, row);
        else
            readRow(component, row, properties);
    }
    if (whole)
        dumpInstances(component);
}

void ParamsReader::readRow(const std::string& component, const RequestRow& row,
                           const Json::Value* properties)
{
    if (findRow(component, row, mResult) == nullptr)
        return;
    callEntryHook(component, row);
    const Json::Value* instance = findRow(component, row, mResult);
    if (instance == nullptr)
        return;

    // Kept on purpose: callers count on the two forms of a row: by index an element of "rows" with
    // its values under "properties", by key a member of "instances" that holds the values itself,
    // and in either case the whole instance when no properties are named.
    Json::Value answer(Json::objectValue);
    if (properties == nullptr)
        answer = *instance;
    else if (row.byIndex())
        answer["index"] = row.index();
    for (Json::ArrayIndex i = 0; properties != nullptr && i < properties->size(); ++i) {
        if ((*properties)[i].isString()) {
            readProperty(component, row, (*properties)[i].asString(), answer);
        } else {
            DBG_LOG(SEV_ERROR) << "getParams: " << mText << " properties[" << i
                               << "] is not a string";
            mResult = FC_BODY_ERROR;
        }
    }

    Json::Value& answered = mAnswer["components"][component];
    if (row.byIndex())
        answered["rows"].append(std::move(answer));
    else
        answered["instances"][row.key()] = std::move(answer);
}

void ParamsReader::readProperty(const std::string& component, const RequestRow& row,
                                const std::string& property, Json::Value& values)
{
    const Json::Value* value = findValue(component, row, property);
    if (value != nullptr) {
        callValueHook(component, row, property);
        value = findValue(component, row, property);
    }
    if (value == nullptr) {
        if (row.byIndex())
            DBG_LOG(SEV_ERROR) << "getParams: " << mText << " comp=" << component
                               << " instances index=" << row.index() << " no param=" << property;
        else
            DBG_LOG(SEV_ERROR) << "getParams: " << mText << " comp=" << component
                               << " instances rowKey=" << row.key() << " no param=" << property;
        mResult = FC_NO_SUCH_NAME;
    } else if (row.byIndex()) {
        values["properties"][property] = *value;
    } else {
        values[property] = *value;
    }
}

const Json::Value* ParamsReader::findValue(const std::string& component, const RequestRow& row,
                                           const std::string& property) const
{
    return member(row.find(findInstances(component)), property);
}

void ParamsReader::callEntryHook(const std::string& component, const RequestRow& row)
{
    if (row.byIndex())
        mStore.onGetComponentEntry(mDataset, component, row.index());
    else
        mStore.onGetComponentEntry(mDataset, component, row.key());
}

void ParamsReader::callValueHook(const std::string& component, const RequestRow& row,
                                 const std::string& property)
{
    if (row.byIndex())
        mStore.onGetComponentValue(mDataset, component, property, row.index());
    else
        mStore.onGetComponentValue(mDataset, component, property, row.key());
}
