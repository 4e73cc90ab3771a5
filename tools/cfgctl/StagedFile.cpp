#include "StagedFile.h"

#include "CommandLine.h"

#include <cerrno>
#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

// Made at boot, for the group of the suite; elsewhere a manager of root's can move from /tmp.
constexpr char kImportDir[] = "/run/sysmgt/import";
constexpr char kOtherDir[] = "/tmp";

Failure cannotStage(const std::string& directory, int error)
{
    Failure failure = fileFailure("cannot make the directory", directory, error);
    failure.exit = EXIT_STATE_OR_RIGHT;
    struct stat status;
    if (error != EACCES || stat(kImportDir, &status) != 0)
        return failure;
    const group* const owner = getgrgid(status.st_gid);
    const passwd* const user = getpwuid(geteuid());
    const auto shown = [](const char* name, unsigned id) {
        return name == nullptr ? std::to_string(id) : std::string(name);
    };
    const std::string name = shown(owner == nullptr ? nullptr : owner->gr_name, status.st_gid);
    failure.cause = "only the group '" + name +
                    "' may hand files to the manager: have root add you, then log in again";
    failure.next = "usermod -aG " + shellQuoted(name) + ' ' +
                   shellQuoted(shown(user == nullptr ? nullptr : user->pw_name, geteuid()));
    return failure;
}

} // namespace

StagedFile::StagedFile(const std::string& file, bool isToGo, bool isDryRun)
    : mPath(fs::absolute(file).lexically_normal().string()) // the manager runs in "/"
{
    std::error_code error;
    if (!fs::is_regular_file(mPath, error))
        throw error ? fileFailure("cannot find", mPath, error.value())
                    : Failure(EXIT_NAME_OR_VALUE, "it is no file", "ls -ld " + shellQuoted(mPath));
    if (isToGo)
        return;
    stage(fs::path(mPath).filename().string(), isDryRun, [from = mPath](const std::string& path) {
        std::error_code failure;
        if (!fs::copy_file(from, path, failure))
            throw fileFailure("cannot copy the file to", path, failure.value());
    });
}

StagedFile::StagedFile(const std::string& name, bool isDryRun,
                       const std::function<void(const std::string& path)>& write)
{
    stage(name, isDryRun, write);
}

void StagedFile::stage(const std::string& name, bool isDryRun,
                       const std::function<void(const std::string& path)>& write)
{
    std::error_code error;
    const bool isShared = fs::is_directory(kImportDir, error);
    std::string directory = std::string(isShared ? kImportDir : kOtherDir) + "/cfgctl-XXXXXX";
    if (!isDryRun && mkdtemp(directory.data()) == nullptr)
        throw cannotStage(directory, errno);
    mPath = directory + '/' + name;
    if (isDryRun)
        return;
    mDirectory.emplace(directory);
    mCopy.emplace(mPath);
    write(mPath);
    // The group is the directory's: the manager's. Who may read the file besides stays as it is.
    const mode_t others = isShared ? 0070 : 0;
    const auto mode = static_cast<mode_t>(fs::status(mPath).permissions()) & 0777;
    if (chmod(directory.c_str(), 02700 | others) != 0 || chmod(mPath.c_str(), mode | 0640) != 0)
        throw fileFailure("cannot hand over", mPath, errno);
}

void StagedFile::leave()
{
    if (mDirectory) {
        mDirectory->leave();
        mCopy->leave();
    }
}
