#include "DbgLine.h"

#include <cerrno>
#include <iomanip>

std::ostream& operator<<(std::ostream& out, Hex number)
{
    const std::ios_base::fmtflags before = out.flags();
    out << std::hex << std::nouppercase << std::noshowbase << number.value;
    out.flags(before);
    return out;
}

DbgLine::DbgLine(int severity, std::string_view unit, int line)
{
    mText.reserve(kUsualLength - 1); // and its end
    DbgPrintClient::getInstance()->appendHeader(severity, mText);
    *this << unit << ':' << line << ':';
}

DbgLine::~DbgLine()
{
    const int savedErrno = errno;
    mText.push_back('\n');
    DbgPrintClient::getInstance()->report(mText);
    errno = savedErrno;
}
