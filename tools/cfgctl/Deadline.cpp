#include "Deadline.h"

#include "terminal/TerminalText.h"

#include <cstdio>
#include <unistd.h>

WaitNote::~WaitNote()
{
    if (mIsShown)
        std::fputs("\r\033[K", stderr);
}

void WaitNote::show(const Deadline& deadline)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(deadline.passed());
    if (seconds.count() == 0 || isatty(STDERR_FILENO) != 1)
        return;
    mIsShown = true;
    std::fprintf(stderr, "\r\033[Kwaiting for %s, %lld", printableText(mWhatFor).c_str(),
                 static_cast<long long>(seconds.count()));
    if (deadline.seconds() != 0)
        std::fprintf(stderr, " of %d", deadline.seconds());
    std::fputs(" s", stderr);
}
