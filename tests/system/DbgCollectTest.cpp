#include "ChildProcess.h"
#include "Device.h"

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;
using testing::Not;

constexpr char kFifo[] = "/tmp/sockDbg";

std::string entry(const std::string& label, const std::string& message)
{
    return label + "22/11/26 21:57:00.123 tCfg(7)Unit:1:" + message + "\n";
}

class DbgCollectTest : public testing::Test
{
protected:
    DbgCollectTest() { std::filesystem::remove(kFifo); }
    ~DbgCollectTest() override { close(fifo); }

    ChildProcess& collect(std::vector<std::string> options = {})
    {
        options.insert(options.begin(), "dbgcollect");
        collector = std::make_unique<ChildProcess>(options);
        EXPECT_TRUE(collector->waitForErrors("collecting from")) << collector->errors();
        close(fifo);
        fifo = open(kFifo, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_NE(-1, fifo);
        return *collector;
    }

    void log(const std::string& text) const
    {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(fifo, text.data(), text.size()));
    }

    std::unique_ptr<ChildProcess> collector;
    int fifo = -1;
};

TEST_F(DbgCollectTest, MakesAFifoThatEveryUserMayWrite)
{
    const mode_t before = umask(077);
    collect();
    umask(before);
    struct stat status;
    ASSERT_EQ(0, stat(kFifo, &status));
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    EXPECT_EQ(0666u, status.st_mode & 07777u);
}

TEST_F(DbgCollectTest, RefusesWhatIsNoFifoAndWhatAnotherCollectorReads)
{
    writeFile(kFifo, "mine");
    const Finished onFile = runProgram({"dbgcollect"});
    EXPECT_EQ(1, onFile.status);
    EXPECT_EQ("dbgcollect: /tmp/sockDbg is not a FIFO; remove it first\n", onFile.errors);
    EXPECT_EQ("mine", readFile(kFifo));
    std::filesystem::remove(kFifo);

    collect();
    const Finished second = runProgram({"dbgcollect"});
    EXPECT_EQ(1, second.status);
    EXPECT_THAT(second.errors, HasSubstr("another collector"));
}

TEST_F(DbgCollectTest, ShowsEntriesOfALevelWithAllTheirLines)
{
    ChildProcess& shown = collect({"--level", "2"});
    log(entry("INFO ", "info") + entry("WARN ", "warning") +
        entry("ERROR", "readMsg: in:\n<HEADER>\nINFO is a word here") + entry("INFO ", "a\nb"));
    log(entry("FATAL", "fatal") + entry("SYS  ", "last"));
    ASSERT_TRUE(shown.waitForOutput("last\n"));
    EXPECT_EQ(entry("ERROR", "readMsg: in:\n<HEADER>\nINFO is a word here") +
                  entry("FATAL", "fatal") + entry("SYS  ", "last"),
              shown.output());
}

TEST_F(DbgCollectTest, ShowsEntriesThatHoldATextInAnyLine)
{
    ChildProcess& shown = collect({"--grep", "SAVE_CFG"});
    const std::string wanted = entry("INFO ", "doWork: msg body:\n<Command ID=\"SAVE_CFG\" >");
    log(entry("INFO ", "one") + wanted + entry("INFO ", "two"));
    log(entry("SYS  ", "SAVE_CFG last"));
    ASSERT_TRUE(shown.waitForOutput("last"));
    EXPECT_EQ(wanted + entry("SYS  ", "SAVE_CFG last"), shown.output());
}

TEST_F(DbgCollectTest, PutsAnEntryTogetherThatComesInPieces)
{
    ChildProcess& shown = collect({"--level", "2"});
    log(entry("ERROR", "first") + "INFO 22/11/26 2");
    log("1:57:00.123 tCfg(7)Unit:1:second\n");
    log(entry("ERROR", "third"));
    ASSERT_TRUE(shown.waitForOutput("third"));
    EXPECT_EQ(entry("ERROR", "first") + entry("ERROR", "third"), shown.output());
}

TEST_F(DbgCollectTest, GoesOnWhenTheLastWriterLeaves)
{
    ChildProcess& shown = collect();
    log(entry("INFO ", "before"));
    close(fifo);
    ASSERT_TRUE(shown.waitForOutput("before"));
    fifo = open(kFifo, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(-1, fifo);
    log(entry("INFO ", "after"));
    EXPECT_TRUE(shown.waitForOutput("after"));
}

TEST_F(DbgCollectTest, EndsOnASignalWithAllThatWasLoggedInItsFile)
{
    writeFile("/tmp/log", "earlier\n");
    collect({"-o", "/tmp/log"});
    log(entry("INFO ", "logged") + "half a line");
    EXPECT_EQ(0, collector->stop(SIGTERM));
    EXPECT_EQ("earlier\n" + entry("INFO ", "logged") + "half a line", readFile("/tmp/log"));
    EXPECT_TRUE(std::filesystem::exists(kFifo)); // for daemons that have it open

    collect({"-o", "/tmp/log"});
    EXPECT_EQ(0, collector->stop(SIGINT));
}

TEST_F(DbgCollectTest, ColoursOnlyWhenAskedWhereThereIsNoTerminal)
{
    collect();
    log(entry("ERROR", "plain"));
    ASSERT_TRUE(collector->waitForOutput("plain"));
    EXPECT_THAT(collector->output(), Not(HasSubstr("\033")));
    collector->stop();

    collect({"--color"});
    log(entry("ERROR", "red"));
    ASSERT_TRUE(collector->waitForOutput("\033[0m\n"));
    EXPECT_THAT(collector->output(), testing::StartsWith("\033[31mERROR"));
}

} // namespace
