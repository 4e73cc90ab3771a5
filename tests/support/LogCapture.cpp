#include "LogCapture.h"

#include "ChildProcess.h"
#include "DbgPrintClient.h"

#include <array>
#include <fcntl.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

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

bool LogCapture::waitFor(const std::string& wanted)
{
    return eventually([&] { return text().find(wanted) != std::string::npos; });
}

std::vector<std::string> LogCapture::entries(const std::string& unnamedUnit)
{
    static const std::regex header(
        R"((INFO |WARN |ERROR|FATAL|SYS  )\d\d/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} [^(\n]*\(\d+\)([A-Za-z/]+):\d+:)");
    const std::string all = text();
    std::vector<std::string> found;
    for (std::sregex_iterator it(all.begin(), all.end(), header), end; it != end;) {
        const std::string label = it->str(1);
        const std::string unit = it->str(2) == unnamedUnit ? "" : it->str(2) + ':';
        const auto start = static_cast<std::size_t>(it->position() + it->length());
        const auto next = ++it == end ? all.size() : static_cast<std::size_t>(it->position());
        found.push_back(label.substr(0, label.find(' ')) + ' ' + unit +
                        all.substr(start, next - start - 1)); // less the line's end
    }
    return found;
}

std::vector<std::string> LogCapture::take(const std::string& unit)
{
    std::vector<std::string> taken = entries(unit);
    clear();
    return taken;
}

void LogCapture::clear()
{
    text();
    mText.clear();
}
