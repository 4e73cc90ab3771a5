#include "Failure.h"

#include "CommandLine.h"
#include "DbgLine.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>

ExitCode exitOf(Fcodes code)
{
    struct Row {
        std::uint32_t bits;
        ExitCode exit;
    };
    constexpr Row kRows[] = {
        {(FC_NO_SUCH_NAME | FC_WRONG_TYPE | FC_BAD_VALUE) & ~FC_OK, EXIT_NAME_OR_VALUE},
        {(FC_UNAVAILABLE | FC_ACCESS_DENIED) & ~FC_OK, EXIT_STATE_OR_RIGHT},
        {FC_COMM_ERROR & ~FC_OK, EXIT_TIME},
    };
    if (code == FC_OK)
        return EXIT_DONE;
    for (const Row& row : kRows)
        if ((code & row.bits) != 0)
            return row.exit;
    return EXIT_OTHER_CODE;
}

std::string hexCode(Fcodes code)
{
    std::ostringstream text;
    text << "0x" << Hex{code};
    return text.str();
}

std::string formatCode(Fcodes code)
{
    return code == FC_OK ? fcodeText(code) : fcodeText(code) + " (" + hexCode(code) + ')';
}

Failure fileFailure(const std::string& what, const std::string& path, int error)
{
    const bool isForbidden = error == EACCES || error == EPERM || error == EROFS;
    const std::string parent = std::filesystem::path(path).parent_path().string();
    return {isForbidden ? EXIT_STATE_OR_RIGHT : EXIT_NAME_OR_VALUE,
            what + ' ' + path + ": " + std::strerror(error),
            (error == ENOSPC || error == EDQUOT ? "df -h " : "ls -la ") +
                shellQuoted(parent.empty() ? "." : parent)};
}
