#pragma once

// The log site. One line, in the form
//
//     DBG_LOG(SEV_ERROR) << "init: Couldn't make dir=" << kCfgDir << " errno=" << errno;
//
// in a source file that holds its unit's name in `constexpr char kUnit[]`. Behind a closed level,
// or with no FIFO open, nothing to the right of DBG_LOG is evaluated.

#include "DbgPrintClient.h"

#include <cstdint>
#include <sstream>
#include <string_view>

/// A number in lower-case hexadecimal without prefix; the stream's own base stays as it was.
struct Hex {
    std::uint32_t value;
};
std::ostream& operator<<(std::ostream& out, Hex number);

/// True when a line of this severity is to be produced and a reader may be there.
inline bool dbgEnabled(int severity)
{
    return gDbgLevel.load(std::memory_order_relaxed) <= severity &&
           DbgPrintClient::getInstance()->isOpen();
}

/// One line under construction; it is reported when it goes out of scope.
class DbgLine
{
public:
    DbgLine(int severity, std::string_view unit, int line);
    ~DbgLine();

    DbgLine(const DbgLine&) = delete;
    DbgLine& operator=(const DbgLine&) = delete;

    template <typename Value>
    DbgLine& operator<<(const Value& value)
    {
        mOss << value;
        return *this;
    }

private:
    std::ostringstream mOss;
};

/// Gives both branches of DBG_LOG the type void.
struct DbgLineEnd {
    void operator&(const DbgLine&) const {}
};

#define DBG_LOG(severity)                                                                          \
    !dbgEnabled(severity) ? (void)0 : DbgLineEnd() & DbgLine((severity), kUnit, __LINE__)
