#include "Confirmation.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <tuple>

namespace
{

const std::string kState = std::string(kConfirmDirectory) + "/state";
const std::string kGuardian = std::string(kConfirmDirectory) + "/guardian";
constexpr mode_t kMode = 0660; // for all of the directory's group
constexpr std::size_t kLargestState = 4096;

int openShared(const std::string& path)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kMode);
    if (file != -1)
        std::ignore = fchmod(file, kMode); // whatever the umask; in vain on another's file
    return file;
}

bool hasGuardian()
{
    const Descriptor file(openShared(kGuardian));
    return file.isOpen() && flock(file.get(), LOCK_SH | LOCK_NB) == -1 && errno == EWOULDBLOCK;
}

} // namespace

Confirmation::Confirmation() : mFile(openShared(kState))
{
    if (!mFile.isOpen() || uninterrupted([this] { return flock(mFile.get(), LOCK_EX); }) == -1)
        mError = errno;
}

std::optional<GuardedStart> Confirmation::read() const
{
    std::array<char, kLargestState> bytes;
    const ssize_t got = pread(mFile.get(), bytes.data(), bytes.size(), 0);
    if (got <= 0 || !hasGuardian())
        return std::nullopt;
    // Names hold any byte but this one.
    std::istringstream fields(std::string(bytes.data(), static_cast<std::size_t>(got)));
    GuardedStart start;
    std::string deadline, isBeingTakenBack;
    for (std::string* field :
         {&start.name, &start.before, &start.socket, &deadline, &isBeingTakenBack})
        if (!std::getline(fields, *field, '\0'))
            return std::nullopt;
    start.deadline = std::atoll(deadline.c_str());
    start.isBeingTakenBack = isBeingTakenBack == "1";
    return start;
}

void Confirmation::write(const GuardedStart& start) const
{
    std::string text;
    for (const std::string& field :
         {start.name, start.before, start.socket, std::to_string(start.deadline),
          std::string(start.isBeingTakenBack ? "1" : "0")})
        text += field + '\0';
    clear();
    std::ignore = pwrite(mFile.get(), text.data(), text.size(), 0); // in memory, and small
}

void Confirmation::clear() const { std::ignore = ftruncate(mFile.get(), 0); }

GuardianLock::GuardianLock()
    : mFile(openShared(kGuardian)),
      mIsHeld(mFile.isOpen() && flock(mFile.get(), LOCK_EX | LOCK_NB) == 0)
{
}

std::int64_t secondsSinceBoot()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec;
}
