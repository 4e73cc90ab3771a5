#include "MessageCommand.h"

#include "DbgLine.h"

namespace
{

constexpr char kUnit[] = "MessageCommand";

} // namespace

Fcodes MessageCommand::initFromString(const std::string& text)
{
    if (getPropertyValue(text, 0, "ID", ID) == std::string::npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not Found ID in command\n" << text;
        return FC_BODY_ERROR;
    }
    readParams(text, [&text](const char* missing) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not found tag=" << missing << " in command:\n"
                           << text;
    });
    return FC_OK;
}

std::string& MessageCommand::toString(std::string& out) const
{
    out.clear();
    out.append("<Command ID=\"").append(ID).append("\" >\n");
    appendParams(out, "\t");
    return out.append("</Command>\n");
}
