#include "JsonRequests.h"

#include <json/writer.h>
#include <sstream>

namespace
{

constexpr std::size_t kLargestPipe = 1 << 20;

} // namespace

std::ostream& operator<<(std::ostream& out, const RequestText& text)
{
    if (text.mText.empty()) {
        std::ostringstream written;
        written << text.mRequest;
        text.mText = written.str();
    } else if (text.mShown + text.mText.size() > kLargestPipe) {
        return out << "(as above)";
    }
    text.mShown += text.mText.size();
    return out << text.mText;
}

std::optional<RequestRow> RequestRow::read(const Json::Value& element)
{
    const Json::Value* name = element.isObject() ? member(&element, "index") : &element;
    if (name != nullptr && name->isInt())
        return RequestRow(name->asInt());
    if (name != nullptr && name->isString())
        return RequestRow(name->asString());
    return std::nullopt;
}

const Json::Value* RequestRow::find(const Json::Value* instances) const
{
    if (!mByIndex)
        return member(instances, mKey);
    if (instances == nullptr || !instances->isArray() || mIndex < 0)
        return nullptr;
    const auto index = static_cast<Json::ArrayIndex>(mIndex);
    return instances->isValidIndex(index) ? &(*instances)[index] : nullptr;
}

Fcodes conclude(Fcodes result, Json::Value& answer, Json::Value& reply)
{
    answer["fcode"] = static_cast<Json::UInt>(result);
    if (const auto text = gFcodeString.find(result); text != gFcodeString.end())
        answer["description"] = text->second;
    reply.swap(answer);
    return result;
}
