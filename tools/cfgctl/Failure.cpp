#include "Failure.h"

#include "CommandLine.h"
#include "DbgLine.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace
{

/// Of the file, or of the nearest directory above it that this user can look at.
bool findGroup(std::filesystem::path path, gid_t& id)
{
    struct stat status;
    while (stat(path.c_str(), &status) != 0) {
        if (path == path.parent_path())
            return false;
        path = path.parent_path();
    }
    id = status.st_gid;
    return true;
}

bool isMember(gid_t id)
{
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    std::ignore = getgroups(static_cast<int>(groups.size()), groups.data());
    return id == getegid() || std::ranges::count(groups, id) > 0;
}

} // namespace

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

Failure groupFailure(const std::string& what, const std::string& path, int error,
                     const std::string& use)
{
    Failure failure = fileFailure(what, path, error);
    gid_t id = 0;
    if (error != EACCES || !findGroup(path, id) || isMember(id))
        return failure;
    const group* const owner = getgrgid(id);
    const passwd* const user = getpwuid(geteuid());
    const auto shown = [](const char* name, unsigned number) {
        return name == nullptr ? std::to_string(number) : std::string(name);
    };
    const std::string name = shown(owner == nullptr ? nullptr : owner->gr_name, id);
    failure.cause =
        "only the group '" + name + "' may " + use + ": have root add you, then log in again";
    failure.next = "usermod -aG " + shellQuoted(name) + ' ' +
                   shellQuoted(shown(user == nullptr ? nullptr : user->pw_name, geteuid()));
    return failure;
}
