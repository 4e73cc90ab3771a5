#pragma once

// The log site. One line, in the form
//
//     DBG_LOG(SEV_ERROR) << "init: Couldn't make dir=" << kCfgDir << " errno=" << errno;
//
// in a source file that holds its unit's name in `constexpr char kUnit[]`. Behind a closed level,
// or with no FIFO open, nothing to the right of DBG_LOG is evaluated.

#include "DbgPrintClient.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

/// A number in lower-case hexadecimal without prefix; the stream's own base stays as it was.
struct Hex {
    std::uint32_t value; ///< Such as a code of Fcodes.h.
};
/// Writes the digits.
std::ostream& operator<<(std::ostream& out, Hex number);

/// True when a line of this severity is to be produced and a reader may be there.
inline bool dbgEnabled(int severity)
{
    return gDbgLevel.load(std::memory_order_relaxed) <= severity &&
           DbgPrintClient::getInstance()->isOpen();
}

/// One line under construction; it is reported when it goes out of scope. One datagram can cause
/// thousands of lines, so a usual one takes neither a stream nor memory of the heap.
class DbgLine
{
public:
    /// Begins a line: severity 0 to 4, the unit's name and the source line.
    DbgLine(int severity, std::string_view unit, int line);
    ~DbgLine();

    DbgLine(const DbgLine&) = delete;
    DbgLine& operator=(const DbgLine&) = delete;

    /// Adds a value as a stream would write it: a bool as 0 or 1, a number in decimal.
    template <typename Value>
    DbgLine& operator<<(const Value& value)
    {
        if constexpr (std::is_convertible_v<const Value&, std::string_view>) {
            append(value);
        } else if constexpr (std::is_same_v<Value, Hex>) {
            appendNumber(value.value, 16);
        } else if constexpr (std::is_same_v<Value, char>) {
            append({&value, 1});
        } else if constexpr (std::is_same_v<Value, bool>) {
            append(value ? "1" : "0");
        } else if constexpr (std::is_integral_v<Value> && sizeof(Value) > 1) {
            appendNumber(value, 10);
        } else {
            std::ostringstream text;
            text << value;
            append(text.view());
        }
        return *this;
    }

private:
    template <typename Number>
    void appendNumber(Number number, int base)
    {
        std::array<char, 24> digits;
        const auto end =
            std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
        append({digits.data(), static_cast<std::size_t>(end - digits.data())});
    }

    void append(std::string_view text)
    {
        if (text.size() > mRoom.size() - mLength)
            appendToLong(text);
        else
            mLength += text.copy(mRoom.data() + mLength, text.size());
    }

    void appendToLong(std::string_view text);

    static constexpr std::size_t kUsualLength = 512;

    std::array<char, kUsualLength> mRoom;
    std::size_t mLength = 0; // in it; all of it as soon as the line is a long one
    std::string mLong;       // the whole text of a line that has not found room there
};

/// A log site, see the top of this file; `severity` is a DbgSeverity.
#define DBG_LOG(severity)                                                                          \
    for (bool dbgLogsHere = dbgEnabled(severity); dbgLogsHere; dbgLogsHere = false)                \
    DbgLine((severity), kUnit, __LINE__)
