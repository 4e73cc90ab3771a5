#include "StagedFile.h"

#include "CommandLine.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace
{

// Made at boot, for the group of the suite; elsewhere a manager of root's can move from /tmp.
constexpr char kImportDir[] = "/run/sysmgt/import";
constexpr char kOtherDir[] = "/tmp";

} // namespace

StagedFile::StagedFile(const std::string& file, bool isToGo, bool isDryRun)
    : mPath(fs::absolute(file).lexically_normal().string()) // the manager runs in "/"
{
    std::error_code error;
    if (!fs::is_regular_file(mPath, error))
        throw Failure(EXIT_NAME_OR_VALUE, error && error != std::errc::no_such_file_or_directory
                                              ? error.message()
                                              : "there is no such file");
    if (isToGo || isDryRun)
        return;
    const bool isShared = fs::is_directory(kImportDir, error);
    std::string directory = std::string(isShared ? kImportDir : kOtherDir) + "/cfgctl-XXXXXX";
    const fs::path name = fs::path(mPath).filename();
    if (mkdtemp(directory.data()) == nullptr)
        throw Failure(EXIT_STATE_OR_RIGHT,
                      "cannot make the directory " + directory + ": " + std::strerror(errno),
                      "cfgctl import --move FILE");
    mDirectory = directory;
    const std::string copy = directory + '/' + name.string();
    fs::copy_file(mPath, copy, error);
    // The group is the directory's: the manager's.
    const mode_t others = isShared ? 0070 : 0;
    if (error || chmod(directory.c_str(), 02700 | others) != 0 || chmod(copy.c_str(), 0640) != 0) {
        const std::string reason = error ? error.message() : std::strerror(errno);
        fs::remove_all(directory, error);
        throw Failure(EXIT_STATE_OR_RIGHT, "cannot copy the file to " + copy + ": " + reason);
    }
    mPath = copy;
}

StagedFile::~StagedFile()
{
    std::error_code error;
    if (!mDirectory.empty())
        fs::remove_all(mDirectory, error);
}
