#include "DbgLine.h"

#include <cerrno>
#include <iomanip>
#include <utility>

std::ostream& operator<<(std::ostream& out, Hex number)
{
    const std::ios_base::fmtflags before = out.flags();
    out << std::hex << std::nouppercase << std::noshowbase << number.value;
    out.flags(before);
    return out;
}

DbgLine::DbgLine(int severity, std::string_view unit, int line)
{
    for (const std::string_view part : DbgPrintClient::getInstance()->header(severity))
        append(part);
    *this << unit << ':' << line << ':';
}

DbgLine::~DbgLine()
{
    const int savedErrno = errno;
    append("\n");
    DbgPrintClient::getInstance()->report(mLong.empty() ? std::string_view(mRoom.data(), mLength)
                                                        : std::string_view(mLong));
    errno = savedErrno;
}

void DbgLine::appendToLong(std::string_view text)
{
    if (mLong.empty())
        mLong.assign(mRoom.data(), std::exchange(mLength, mRoom.size()));
    mLong.append(text);
}
