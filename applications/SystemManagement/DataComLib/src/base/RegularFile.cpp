#include "base/RegularFile.h"

#include "base/Descriptor.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{

constexpr std::size_t kLeastBuffer = 1 << 12;

int status(int fd, struct stat& status)
{
    return persistently([&] { return fstat(fd, &status); });
}

} // namespace

int openRegularFile(const std::string& path)
{
    // A FIFO opens without a writer, a terminal does not become the controlling one.
    const int fd = persistently(
        [&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    struct stat opened {
    };
    if (fd == -1 || (status(fd, opened) == 0 && S_ISREG(opened.st_mode)))
        return fd;
    close(fd);
    errno = S_ISDIR(opened.st_mode) ? EISDIR : ENXIO;
    return -1;
}

int readToEnd(int fd, std::string& text)
{
    struct stat opened {
    };
    status(fd, opened);
    text.clear();
    std::size_t length = 0;
    ssize_t count = 1;
    while (count > 0) {
        if (std::max(opened.st_size, static_cast<off_t>(length)) > kLargestFile)
            return EFBIG;
        // At first one byte more than the file has: that finds its end.
        if (length == text.size())
            text.resize(
                std::max({2 * length, static_cast<std::size_t>(opened.st_size) + 1, kLeastBuffer}));
        count = persistently([&] { return read(fd, &text[length], text.size() - length); });
        length += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    const int error = count == -1 ? errno : 0;
    text.resize(length);
    return error;
}
