// JSON requests: the part of DataSets that answers whole requests with whole replies.

#include "DataSets.h"
#include "DbgLine.h"
#include "store/ParamsReader.h"
#include "store/ParamsWriter.h"
#include "store/RequestText.h"

#include <json/writer.h>

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

/// How the two operations that fetch names differ.
struct FetchOperation {
    const char* prefix;    // of its log lines
    const char* member;    // of the component, whose names are fetched
    const char* answer;    // the member of the reply
    const char* complaint; // about a component without the member
};

constexpr FetchOperation kFetchPropertyNames = {"fetchPropertyNames: ", "properties", "properties",
                                                " No key=properties"};
constexpr FetchOperation kFetchComponentKeys = {"fetchComponentKeys: ", "instances", "rows",
                                                " No key=instances"};

class NamesFetch
{
public:
    NamesFetch(const FetchOperation& operation, Json::Value& documents, const Json::Value& request,
               Json::Value& answer)
        : mOperation(operation), mDocuments(documents), mRequest(request), mText(request),
          mAnswer(answer)
    {
    }

    Fcodes run()
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
            const Fcodes fetched = fetch(it.name(), member(components, it.name()), *document);
            if (fetched != FC_OK)
                result = fetched;
        }
        return result;
    }

private:
    Fcodes fetch(const std::string& name, const Json::Value* component, Json::Value& document)
    {
        if (component == nullptr) {
            DBG_LOG(SEV_ERROR) << mOperation.prefix << mText << " No such component=" << name;
            return FC_NO_SUCH_NAME;
        }
        const Json::Value* tested = member(component, mOperation.member);
        if (tested == nullptr) {
            DBG_LOG(SEV_ERROR) << mOperation.prefix << mText << " comp=" << name
                               << mOperation.complaint;
            return FC_OK;
        }
        Json::Value& names = mAnswer["components"][name][mOperation.answer];
        names = Json::Value(Json::arrayValue);
        if (!tested->isObject()) {
            DBG_LOG(SEV_ERROR) << mOperation.prefix << mText << " comp=" << name
                               << " values are not objects (by rowKey)";
            return FC_UNAVAILABLE;
        }
        // Kept on purpose: peers count on the names being looked for beside "components", where an
        // ordinary document has none, and on the member that the look-up leaves in the document.
        const Json::Value* listed = openMember(openMember(&document, name), mOperation.member);
        if (listed != nullptr && listed->isObject())
            for (auto it = listed->begin(); it != listed->end(); ++it)
                names.append(it.name());
        return FC_OK;
    }

    const FetchOperation& mOperation;
    Json::Value& mDocuments;
    const Json::Value& mRequest;
    const RequestText mText;
    Json::Value& mAnswer;
};

/// Ends an answer with the result's "fcode" and "description", and gives it to the caller in place
/// of what `reply` held. Returns the result.
Fcodes finishReply(Fcodes result, Json::Value& answer, Json::Value& reply)
{
    answer["fcode"] = static_cast<Json::UInt>(result);
    if (const auto text = gFcodeString.find(result); text != gFcodeString.end())
        answer["description"] = text->second;
    reply.swap(answer);
    return result;
}

} // namespace

Fcodes DataSets::setParams(const Json::Value& request, Json::Value& reply)
{
    const std::lock_guard guard(*this);
    Json::Value answer(Json::objectValue);
    Fcodes result = FC_UNAVAILABLE;
    try {
        ParamsWriter writer(mDataSets, mChanges, request);
        result = writer.check();
        if (result == FC_OK) {
            const std::unique_lock changing(mChangesMutex);
            writer.write();
        }
    } catch (const std::exception&) {
        DBG_LOG(SEV_ERROR) << "setParams: Exc: Couldn't set request parameters=" << request;
    }
    return finishReply(result, answer, reply);
}

Fcodes DataSets::getParams(const Json::Value& request, Json::Value& reply)
{
    const std::lock_guard guard(*this);
    Json::Value answer(Json::objectValue);
    Fcodes result = FC_UNAVAILABLE;
    try {
        result = ParamsReader(*this, mDataSets, request, answer).run();
    } catch (const std::exception&) {
        DBG_LOG(SEV_ERROR) << "getParams: Exc: Couldn't get request parameters=" << request;
    }
    return finishReply(result, answer, reply);
}

Fcodes DataSets::fetchPropertyNames(const Json::Value& request, Json::Value& reply)
{
    const std::lock_guard guard(*this);
    Json::Value answer(Json::objectValue);
    Fcodes result = FC_UNAVAILABLE;
    try {
        result = NamesFetch(kFetchPropertyNames, mDataSets, request, answer).run();
    } catch (const std::exception&) {
        // Kept on purpose: peers count on the word "set" in the two operations that fetch names.
        DBG_LOG(SEV_ERROR) << "fetchPropertyNames: Exc: Couldn't set request parameters="
                           << request;
    }
    return finishReply(result, answer, reply);
}

Fcodes DataSets::fetchComponentKeys(const Json::Value& request, Json::Value& reply)
{
    const std::lock_guard guard(*this);
    Json::Value answer(Json::objectValue);
    Fcodes result = FC_UNAVAILABLE;
    try {
        result = NamesFetch(kFetchComponentKeys, mDataSets, request, answer).run();
    } catch (const std::exception&) {
        DBG_LOG(SEV_ERROR) << "fetchComponentKeys: Exc: Couldn't set request parameters="
                           << request;
    }
    return finishReply(result, answer, reply);
}
