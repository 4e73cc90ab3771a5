#include "MessageParams.h"

bool MessageParams::getParam(const std::string& name, std::string& value) const
{
    const auto found = mParams.find(name);
    if (found == mParams.end())
        return false;
    value = found->second;
    return true;
}

void MessageParams::appendParams(std::string& out, std::string_view indent) const
{
    for (const auto& [name, value] : mParams)
        out.append(indent)
            .append("<Parameter Name=\"")
            .append(name)
            .append("\" Value=\"")
            .append(value)
            .append("\" />\n");
}
