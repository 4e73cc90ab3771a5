#include "store/NamesFetch.h"

#include "DbgLine.h"
#include "store/JsonMember.h"

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

} // namespace

constexpr NamesFetch::Operation NamesFetch::kPropertyNames = {"fetchPropertyNames: ", "properties",
                                                              "properties", " No key=properties"};
constexpr NamesFetch::Operation NamesFetch::kComponentKeys = {"fetchComponentKeys: ", "instances",
                                                              "rows", " No key=instances"};

Fcodes NamesFetch::run()
{
    const Json::Value* name = member(&mRequest, "dataset");
    const Json::Value* wanted = member(&mRequest, "components");
    Json::Value* document =
        name != nullptr && name->isString() ? member(&mDocuments, name->asString()) : nullptr;
    const Json::Value* components = member(document, "components");
    if (components == nullptr || wanted == nullptr || !wanted->isObject()) {
        DBG_LOG(SEV_ERROR) << mOperation.prefix << mText << " no key=dataset or the dataset";
        return FC_BODY_ERROR;
    }
    Fcodes result = FC_OK;
    for (auto it = wanted->begin(); it != wanted->end(); ++it) {
        const Fcodes fetchResult = fetch(it.name(), member(components, it.name()), *document);
        if (fetchResult != FC_OK)
            result = fetchResult;
    }
    return result;
}

Fcodes NamesFetch::fetch(const std::string& name, const Json::Value* component,
                         Json::Value& document)
{
    if (component == nullptr) {
        DBG_LOG(SEV_ERROR) << mOperation.prefix << mText << " No such component=" << name;
        return FC_NO_SUCH_NAME;
    }
    const Json::Value* tested = member(component, mOperation.source);
    if (tested == nullptr) {
        DBG_LOG(SEV_ERROR) << mOperation.prefix << mText << " comp=" << name
                           << mOperation.complaint;
        return FC_OK;
    }
    Json::Value& names = mAnswer["components"][name][mOperation.target];
    names = Json::Value(Json::arrayValue);
    if (!tested->isObject()) {
        DBG_LOG(SEV_ERROR) << mOperation.prefix << mText << " comp=" << name
                           << " values are not objects (by rowKey)";
        return FC_UNAVAILABLE;
    }
    // Kept on purpose: stored files count on the member that this look-up leaves in the document.
    // The names are looked for beside "components", where an ordinary document has none.
    const Json::Value* listed =
        findOrCreateMember(findOrCreateMember(&document, name), mOperation.source);
    if (listed != nullptr && listed->isObject())
        for (auto it = listed->begin(); it != listed->end(); ++it)
            names.append(it.name());
    return FC_OK;
}
