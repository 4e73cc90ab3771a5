#pragma once

// How a verb ends: the exit status, and why when it is not 0. No state; one thread.

#include "Fcodes.h"

#include <exception>
#include <string>

/// The same in help, JSON, man page and README.
enum ExitCode : int {
    EXIT_DONE = 0,
    EXIT_INTERNAL = 1,
    EXIT_USAGE = 2,
    EXIT_NO_ANSWER = 3,
    EXIT_NAME_OR_VALUE = 4,
    EXIT_STATE_OR_RIGHT = 5,
    EXIT_TIME = 6,
    EXIT_OTHER_CODE = 7,
};

/// What each says, by its number.
inline constexpr const char* kExitTexts[] = {
    "done",
    "internal: the client itself failed, such as in writing its output",
    "used wrongly; nothing has been sent",
    "the daemon did not answer",
    "refused for a name or a value (0x10008, 0x10010, 0x10020)",
    "refused for a state or a right (0x10100, 0x10004)",
    "out of time: a wait, or a peer behind the daemon (0x10040)",
    "refused with any other code",
};

/// True when the code, of one bit or several, has the failure's bit.
constexpr bool holds(Fcodes code, Fcodes failure) { return (code & failure & ~FC_OK) != 0; }

/// The first of 4 to 7 that a bit of a refusal's code has.
ExitCode exitOf(Fcodes code);

/// "OK", or "No Such Name (0x10008)".
std::string formatCode(Fcodes code);
std::string hexCode(Fcodes code); ///< "0x10008"

/// Why a verb was not done. main() says what was asked before it, and what to type next behind it.
struct Failure : std::exception {
    Failure(ExitCode exitCode, std::string problemText, std::string nextText = {})
        : exit(exitCode), problem(std::move(problemText)), next(std::move(nextText))
    {
    }

    const char* what() const noexcept override { return problem.c_str(); }

    ExitCode exit;
    std::string problem;    ///< what is wrong
    std::string cause;      ///< why that may be; "" where the problem says it
    std::string next;       ///< a command to try; "" for the help, which explain() puts in
    Fcodes code = FC_OK;    ///< of the daemon's answer; FC_OK without one
    bool mayBeDone = false; ///< it has been sent, and the daemon may have done it, or still do it
};

/// Of a file that cannot be used, after "cannot read" or so: EXIT_STATE_OR_RIGHT where a right is
/// missing, else EXIT_NAME_OR_VALUE.
Failure fileFailure(const std::string& what, const std::string& path, int error);

/// The same of a file, or what is to be in a directory, that a group may use: where it is the group
/// that is missing, who can give it. `use` stands behind "may": "read it".
Failure groupFailure(const std::string& what, const std::string& path, int error,
                     const std::string& use);
