#include "DbgPrintClient.h"

#include "DbgLine.h"
#include "Fcodes.h"
#include "LogCapture.h"
#include "Refusal.h"
#include "base/LocalTime.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iomanip>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using namespace testing;

constexpr char kUnit[] = "SomeUnit";

// Each case needs a process of its own, as ctest gives it one: there is one client in a process.

TEST(DbgPrintClientTest, WritesLabelDateTaskPidUnitLineAndMessageAsOneLine)
{
    LogCapture log;
    constexpr char kDirectory[] = "/data/cfg";
    setTaskName(currentTaskId(), "tMain");
    errno = EACCES;
    DBG_LOG(SEV_ERROR) << "init: Couldn't make dir=" << kDirectory << " errno=" << errno;
    EXPECT_EQ(EACCES, errno);
    DBG_LOG(SEV_WARN) << "code=" << Hex{0x10020} << " then " << 16;
    DBG_LOG(SEV_INFO) << true << ' ' << INT64_MIN << UINT64_MAX << " \xff" << 0.5 << FC_OK;

    const std::string date = "[0-9][0-9]/[0-9][0-9]/[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\."
                             "[0-9][0-9][0-9] tMain\\(" +
                             std::to_string(getpid()) + "\\)SomeUnit:[0-9]+:";
    EXPECT_THAT(log.text(),
                MatchesRegex("ERROR" + date + "init: Couldn't make dir=/data/cfg errno=13\n" +
                             "WARN " + date + "code=10020 then 16\n" + "INFO " + date +
                             "1 -922337203685477580818446744073709551615 \xff" + "0.565536\n"));

    log.clear();
    if (const pid_t child = fork(); child != 0) {
        EXPECT_TRUE(log.waitFor("tMain(" + std::to_string(child) + ")"));
        EXPECT_EQ(child, waitpid(child, nullptr, 0));
    } else {
        DBG_LOG(SEV_INFO) << "from a child";
        _exit(0);
    }
}

TEST(DbgPrintClientTest, AnOlderApplicationsStreamsBecomeLinesToo)
{
    LogCapture log;
    setTaskName(currentTaskId(), "tMain");
    std::ostringstream line;
    *fillInOss(SEV_WARN, &line) << "fcode=" << std::setw(8) << std::hex << 0x10020 << '\n';
    debugReport(&line);
    EXPECT_THAT(log.text(),
                MatchesRegex("WARN [0-9/]+ [0-9:.]+ tMain\\([0-9]+\\)fcode=00010020\n"));
}

TEST(DbgPrintClientTest, LevelIsAThresholdAndAClosedSiteEvaluatesNothing)
{
    LogCapture log;
    const int expected[][2] = {{-7, 5}, {0, 5}, {1, 4}, {3, 2}, {4, 1}, {5, 0}, {99, 0}};
    for (const auto& [level, lines] : expected) {
        log.clear();
        int evaluated = 0;
        gDbgLevel = level;
        for (int severity = SEV_INFO; severity <= SEV_SYS; ++severity)
            DBG_LOG(severity) << ++evaluated;
        EXPECT_EQ(static_cast<std::size_t>(lines), log.entries().size()) << level;
        EXPECT_EQ(lines, evaluated) << level;
    }
}

TEST(DbgPrintClientTest, FirstNameOfAThreadStaysAndALineBeforeItLeavesItUnnamed)
{
    LogCapture log;
    std::thread([] {
        setTaskName(currentTaskId(), "tFirst");
        setTaskName(currentTaskId(), "tSecond");
        DBG_LOG(SEV_INFO) << "named";
    }).join();
    EXPECT_THAT(log.text(), HasSubstr(" tFirst("));

    DBG_LOG(SEV_INFO) << "too early";
    setTaskName(currentTaskId(), "tLate");
    log.clear();
    DBG_LOG(SEV_INFO) << "still unnamed";
    EXPECT_THAT(log.text(), HasSubstr(" tUnknwn("));
}

TEST(DbgPrintClientTest, LinesFollowTheZoneFromTheVeryNextLine)
{
    LogCapture log;
    const auto hourOfNextLine = [&log] {
        log.clear();
        DBG_LOG(SEV_INFO) << "hour";
        return std::stoi(log.text().substr(14, 2));
    };
    setTimeZone("UTC0");
    const int before = hourOfNextLine();
    setTimeZone("XYZ-5");
    const int ahead = (hourOfNextLine() - before + 24) % 24;
    EXPECT_TRUE(ahead == 5 || ahead == 6) << ahead; // the hour may turn between the two lines
    EXPECT_EQ("05-Mar-24  14:07:09", toLocalTimeText(1709629629));
}

TEST(DbgPrintClientTest, LinesWithoutAReaderAreLostAndANewReaderGetsTheNext)
{
    const auto handler = std::signal(SIGPIPE, SIG_DFL);
    for (const bool oldKernel : {false, true}) {
        if (oldKernel)
            refuse(SYS_pwritev2, 0, 0, EOPNOTSUPP); // older than Linux 6.18
        {
            LogCapture first;
            DBG_LOG(SEV_INFO) << "read";
        }
        DBG_LOG(SEV_INFO) << "lost"; // would raise SIGPIPE
        {
            const DbgBurst burst;
            for (int i = 0; i < 3; ++i)
                DBG_LOG(SEV_INFO) << "lost, one of many";
        }
        LogCapture second;
        DBG_LOG(SEV_INFO) << "read again";
        EXPECT_THAT(second.entries(), ElementsAre("INFO SomeUnit:read again"));
    }

    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
    EXPECT_EQ(SIG_DFL, std::signal(SIGPIPE, handler));
}

TEST(DbgPrintClientTest, FullPipeLosesLinesWithoutWaiting)
{
    LogCapture log;
    const std::string longText(60000, 'x');
    for (int i = 0; i < 100; ++i)
        DBG_LOG(SEV_INFO) << longText; // far more than the pipe holds, and nobody reads
    EXPECT_LT(log.text().size(), 100 * longText.size());
    log.clear();
    DBG_LOG(SEV_INFO) << "after";
    EXPECT_THAT(log.entries(), ElementsAre("INFO SomeUnit:after"));
}

TEST(DbgPrintClientTest, MissingFifoIsReportedOnceAndClosesEveryLine)
{
    testing::internal::CaptureStdout();
    int evaluated = 0;
    DBG_LOG(SEV_FATAL) << ++evaluated;
    EXPECT_EQ("DbgPrintClient: Couldn't open a fifo /tmp/sockDbg errno=2\n",
              testing::internal::GetCapturedStdout());
    EXPECT_EQ(0, evaluated);
}

TEST(DbgPrintClientTest, ALinkIsFollowedToAFifoOnly)
{
    mkfifo("/tmp/fifo", 0666);
    std::filesystem::create_symlink("/tmp/fifo", "/tmp/sockDbg");
    LogCapture log;
    if (const pid_t child = fork(); child == 0) {
        std::filesystem::remove("/tmp/sockDbg");
        std::ofstream("/tmp/file");
        std::filesystem::create_symlink("/tmp/file", "/tmp/sockDbg");
        testing::internal::CaptureStdout();
        DBG_LOG(SEV_FATAL) << "into somebody's file";
        const bool refused = testing::internal::GetCapturedStdout().ends_with(" errno=40\n");
        _exit(refused && std::filesystem::is_empty("/tmp/file") ? 0 : 1);
    } else {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status);
    }
    std::filesystem::remove("/tmp/sockDbg");
    std::filesystem::create_symlink("/tmp/fifo", "/tmp/sockDbg");
    DBG_LOG(SEV_INFO) << "read";
    EXPECT_THAT(log.entries(), ElementsAre("INFO SomeUnit:read"));
}

} // namespace
