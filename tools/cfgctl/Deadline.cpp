#include "Deadline.h"

#include "terminal/TerminalText.h"

#include <cstdio>
#include <unistd.h>

WaitNote::~WaitNote()
{
    if (mShown.count() != 0)
        std::fputs("\r\033[K", stderr);
}

void WaitNote::show(const Deadline& deadline)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(deadline.passed());
    if (seconds == mShown || isatty(STDERR_FILENO) != 1)
        return;
    mShown = seconds;
    std::fprintf(stderr, "\r\033[Kwaiting for %s, %lld", printableText(mWhatFor).c_str(),
                 static_cast<long long>(seconds.count()));
    if (deadline.seconds() != 0)
        std::fprintf(stderr, " of %d", deadline.seconds());
    std::fputs(" s", stderr);
}

ProgressNote::~ProgressNote()
{
    if (mIsShown)
        std::fputs("\r\033[K", stderr);
}

void ProgressNote::show(std::size_t done, std::size_t all)
{
    constexpr std::chrono::milliseconds kPause(500);
    const auto now = Deadline::Clock::now();
    if (now - mShown < kPause || isatty(STDERR_FILENO) != 1)
        return;
    mShown = now;
    mIsShown = true;
    std::fprintf(stderr, "\r\033[K%s, %zu of %zu", printableText(mWhat).c_str(), done, all);
}
