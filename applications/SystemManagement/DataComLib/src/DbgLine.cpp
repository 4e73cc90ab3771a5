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
    fillInOss(severity, &mOss);
    mOss << unit << ':' << line << ':';
}

DbgLine::~DbgLine()
{
    const int savedErrno = errno;
    mOss << std::endl;
    debugReport(&mOss);
    errno = savedErrno;
}
