#include "StagedFile.h"

#include "CommandLine.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

// Made at boot, for the group of the suite; elsewhere a manager of root's can move from /tmp.
constexpr char kImportDir[] = "/run/sysmgt/import";
constexpr char kOtherDir[] = "/tmp";
constexpr std::size_t kChunk = 65536;

Failure cannotStage(const std::string& directory, int error)
{
    const std::string shared = fs::path(directory).parent_path().string() + '/';
    Failure failure =
        groupFailure("cannot put a copy into", shared, error, "hand files to the manager");
    failure.exit = EXIT_STATE_OR_RIGHT;
    return failure;
}

/// Says which of the two files it is.
void copyFile(const std::string& from, const std::string& to)
{
    const Descriptor source(openRegularFile(from));
    if (!source.isOpen())
        throw fileFailure("cannot read", from, errno);
    const Descriptor copy(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!copy.isOpen())
        throw cannotStage(fs::path(to).parent_path().string(), errno);
    struct stat status;
    std::array<char, kChunk> chunk;
    for (;;) {
        const ssize_t got =
            uninterrupted([&] { return read(source.get(), chunk.data(), chunk.size()); });
        if (got == -1)
            throw fileFailure("cannot read", from, errno);
        if (got == 0)
            break;
        for (ssize_t done = 0; done < got;) {
            const ssize_t written = uninterrupted([&] {
                return write(copy.get(), chunk.data() + done, static_cast<std::size_t>(got - done));
            });
            if (written == -1)
                throw cannotStage(fs::path(to).parent_path().string(), errno);
            done += written;
        }
    }
    if (fstat(source.get(), &status) == 0)
        std::ignore = fchmod(copy.get(), status.st_mode & 07777);
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
    stage(fs::path(mPath).filename().string(), isDryRun,
          [from = mPath](const std::string& path) { copyFile(from, path); });
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
