#include "MessageEvent.h"

#include "DbgLine.h"

namespace
{

constexpr char kUnit[] = "MessageEvent";

} // namespace

Fcodes MessageEvent::initFromString(const std::string& text)
{
    if (getPropertyValue(text, 0, "ID", ID) == std::string::npos) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not found tags ID in:\n" << text;
        return FC_BODY_ERROR;
    }
    if (getPropertyValue(text, 0, "Source", Source) == std::string::npos)
        DBG_LOG(SEV_WARN) << "initFromString: Not found tags Source in:\n" << text;
    getPropertyValue(text, 0, "Status", Status);
    getPropertyValue(text, 0, "Time", Time);
    getPropertyValue(text, 0, "Description", Description);
    getPropertyValue(text, 0, "Severity", Severity);

    readParams(text, [&text](const char* missing) {
        DBG_LOG(SEV_ERROR) << "initFromString: Not found tag=" << missing << " in:\n" << text;
    });
    return FC_OK;
}

std::string& MessageEvent::toString(std::string& out) const
{
    out.clear();
    out.append("\t<Event ID=\"").append(ID);
    out.append("\" Source=\"").append(Source);
    out.append("\" Status=\"").append(Status);
    out.append("\" Time=\"").append(Time);
    out.append("\" Description=\"").append(Description);
    out.append("\" Severity=\"").append(Severity).append("\" >\n");
    appendParams(out, "\t\t");
    return out.append("\t</Event>\n");
}
