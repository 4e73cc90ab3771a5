#pragma once

// Result and function codes of the whole suite, and the rules for their use:
//
//  - A code is the bit FC_OK (0x10000) plus at most one failure bit. Results of several steps are
//    joined with `|`, starting from FC_OK, so that every failure survives: 0x10003 says that both
//    header and body were wrong.
//  - "Succeeded" means *equals* FC_OK. Never test a single bit, never compare with 0.
//  - An operation writes its outputs only when it succeeds, unless its comment says otherwise.
//  - Nothing throws across a public operation. The store catches what the JSON library and a
//    derived store's hooks throw; start() of the communicator a thread that cannot be made. Others,
//    such as no memory, end the process.
//  - A result is ignored only where nobody could act on it: at start-up, in cleaning up after
//    another failure, and where the caller has its answer already.
//  - A caller that wants a text for an operator asks fcodeText().

#include <cstdint>
#include <map>
#include <string>

/// The codes; those of peers may have bits that have no name here.
enum Fcodes : std::uint32_t {
    FC_OK = 0x10000,
    FC_HEADER_ERROR = 0x10001,
    FC_BODY_ERROR = 0x10002,
    FC_ACCESS_DENIED = 0x10004,
    FC_NO_SUCH_NAME = 0x10008,
    FC_WRONG_TYPE = 0x10010,
    FC_BAD_VALUE = 0x10020,
    FC_COMM_ERROR = 0x10040,
    FC_UNSUPPORTED = 0x10080,
    FC_UNAVAILABLE = 0x10100,
    FC_DATA_STREAM = 0x10200,
    FC_LOS = 0x10400,
};

/// Joins results: each failure of either is in what comes back.
constexpr Fcodes operator|(Fcodes left, Fcodes right)
{
    return static_cast<Fcodes>(static_cast<std::uint32_t>(left) |
                               static_cast<std::uint32_t>(right));
}

constexpr Fcodes& operator|=(Fcodes& left, Fcodes right) { return left = left | right; }

/// A map from code to text that is only read, by any number of threads. Reading a code without a
/// row, such as a joined one, gives an empty text and inserts nothing.
class FcodeStrings : public std::map<Fcodes, std::string>
{
public:
    using std::map<Fcodes, std::string>::map;

    /// The text of a single code; it lives as long as the map.
    const std::string& operator[](Fcodes code) const;
};

/// The text of each single code; exactly the twelve rows of the enumeration.
extern const FcodeStrings gFcodeString;

/// The text of any code, joined ones included: "OK", "No Such Name", "Bad Value, Unavailable".
/// Bits that have no text are shown in hexadecimal. Any thread may call.
std::string fcodeText(Fcodes code);
