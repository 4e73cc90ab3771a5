#include "wire/SubscriptionRenewal.h"

#include <sys/stat.h>

SocketFile SocketFile::at(const std::string& path)
{
    struct stat info;
    if (stat(path.c_str(), &info) == -1)
        return {};
    return {info.st_dev, info.st_ino,
            info.st_mtim.tv_sec * INT64_C(1000000000) + info.st_mtim.tv_nsec};
}

bool SubscriptionRenewal::asked(const SocketFile& file, bool answered, Time now)
{
    mAsked = file;
    mAskAgain = now + kAskInterval;
    if (!answered || file == mAnswered)
        return false;
    mAnswered = file;
    return true;
}
