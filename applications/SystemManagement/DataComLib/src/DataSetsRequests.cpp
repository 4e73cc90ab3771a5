// JSON requests: the part of DataSets that answers whole requests with whole replies.

#include "DataSets.h"
#include "DbgLine.h"
#include "store/CommittedTree.h"
#include "store/NamesFetch.h"
#include "store/ParamsReader.h"
#include "store/ParamsWriter.h"

#include <json/writer.h>

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

/// Carries out a request and fills the reply in place of what the caller's value held; the last
/// members are the result's "fcode" and "description". `run` fills the answer; whatever it or a
/// hook of a derived store throws is FC_UNAVAILABLE, with the line that begins with `failure`.
template <typename Run>
Fcodes answerRequest(const char* failure, const Json::Value& request, Json::Value& reply, Run run)
try {
    Json::Value answer(Json::objectValue);
    Fcodes result = FC_UNAVAILABLE;
    try {
        result = run(answer);
    } catch (...) {
        DBG_LOG(SEV_ERROR) << failure << request;
    }
    answer["fcode"] = static_cast<Json::UInt>(result);
    if (const auto text = gFcodeString.find(result); text != gFcodeString.end())
        answer["description"] = text->second;
    reply.swap(answer);
    return result;
} catch (...) {
    return FC_UNAVAILABLE; // no memory for the line or the reply
}

} // namespace

Fcodes DataSets::setParams(const Json::Value& request, Json::Value& reply)
{
    const std::lock_guard guard(*this);
    return answerRequest("setParams: Exc: Couldn't set request parameters=", request, reply,
                         [&](Json::Value&) {
                             ParamsWriter writer(mDataSets->get(), mChanges, request);
                             const Fcodes result = writer.check();
                             if (result == FC_OK) {
                                 const std::unique_lock changesGuard(mChangesMutex);
                                 writer.write();
                             }
                             return result;
                         });
}

Fcodes DataSets::getParams(const Json::Value& request, Json::Value& reply)
{
    const std::lock_guard guard(*this);
    return answerRequest("getParams: Exc: Couldn't get request parameters=", request, reply,
                         [&](Json::Value& answer) {
                             return ParamsReader(*this, mDataSets->get(), request, answer).run();
                         });
}

// Kept on purpose: log readers count on the word "set" in the two operations that fetch names.

Fcodes DataSets::fetchPropertyNames(const Json::Value& request, Json::Value& reply)
{
    const std::lock_guard guard(*this);
    return answerRequest(
        "fetchPropertyNames: Exc: Couldn't set request parameters=", request, reply,
        [&](Json::Value& answer) {
            return NamesFetch(NamesFetch::kPropertyNames, mDataSets->grow(), request, answer).run();
        });
}

Fcodes DataSets::fetchComponentKeys(const Json::Value& request, Json::Value& reply)
{
    const std::lock_guard guard(*this);
    return answerRequest(
        "fetchComponentKeys: Exc: Couldn't set request parameters=", request, reply,
        [&](Json::Value& answer) {
            return NamesFetch(NamesFetch::kComponentKeys, mDataSets->grow(), request, answer).run();
        });
}
