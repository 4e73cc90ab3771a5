#include "LogCapture.h"

#include "DbgPrintClient.h"

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kFifo[] = "/tmp/sockDbg";
constexpr int kFifoSize = 1 << 20; // holds what any single test logs between two reads

} // namespace

LogCapture::LogCapture()
{
    mkfifo(kFifo, 0666);
    // Open for writing too, so that it is never without a reader or at its end.
    mFifo = open(kFifo, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    fcntl(mFifo, F_SETPIPE_SZ, kFifoSize);
    gDbgLevel = 0;
    clear();
}

LogCapture::~LogCapture() { close(mFifo); }

std::string LogCapture::text()
{
    std::array<char, 65536> chunk;
    for (ssize_t got; (got = read(mFifo, chunk.data(), chunk.size())) > 0;)
        mText.append(chunk.data(), static_cast<std::size_t>(got));
    return mText;
}

bool LogCapture::waitFor(const std::string& wanted, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    pollfd waiting{mFifo, POLLIN, 0};
    while (text().find(wanted) == std::string::npos) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) == 0)
            return false;
    }
    return true;
}

std::vector<std::string> LogCapture::entries()
{
    static const std::regex header(
        R"((INFO |WARN |ERROR|FATAL|SYS  )\d\d/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} [^(\n]*\(\d+\)([A-Za-z/]+):\d+:)");
    const std::string all = text();

    std::vector<std::string> found;
    std::size_t messageStart = std::string::npos;
    const auto endEntry = [&](std::size_t end) {
        if (messageStart != std::string::npos)
            found.back() += all.substr(messageStart, end - messageStart - 1); // less the line's end
    };
    for (std::sregex_iterator it(all.begin(), all.end(), header), end; it != end; ++it) {
        const auto position = static_cast<std::size_t>(it->position());
        endEntry(position);
        const std::string label = (*it)[1];
        found.push_back(label.substr(0, label.find(' ')) + ' ' + (*it)[2].str() + ':');
        messageStart = position + static_cast<std::size_t>(it->length());
    }
    endEntry(all.size());
    return found;
}

void LogCapture::clear()
{
    text();
    mText.clear();
}
