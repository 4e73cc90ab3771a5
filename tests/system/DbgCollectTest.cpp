#include "Device.h"

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

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

    void collect(std::vector<std::string> options = {})
    {
        options.insert(options.begin(), "dbgcollect");
        collector = std::make_unique<ChildProcess>(options);
        EXPECT_TRUE(collector->waitFor("collecting from")) << collector->errors();
        openFifo();
    }

    void openFifo()
    {
        close(fifo);
        fifo = open(kFifo, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_NE(-1, fifo);
    }

    void log(const std::string& text) const
    {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(fifo, text.data(), text.size()));
    }

    /// Logs `text` and a last entry; everything shown before it must be `expected`.
    void expectShown(const std::string& expected, const std::string& text)
    {
        const std::string last = entry("SYS  ", "last SAVE_CFG");
        log(text + last);
        EXPECT_TRUE(collector->waitFor("last"));
        EXPECT_EQ(expected + last, collector->output());
    }

    std::unique_ptr<ChildProcess> collector;
    int fifo = -1;
};

TEST_F(DbgCollectTest, MakesAFifoThatEveryUserMayWriteReadsItAloneAndRefusesWhatIsNoFifo)
{
    writeFile(kFifo, "a file");
    ChildProcess onFile({"dbgcollect"});
    EXPECT_EQ(1, onFile.wait());
    EXPECT_EQ("dbgcollect: /tmp/sockDbg is not a FIFO; remove it first\n", onFile.errors());
    EXPECT_EQ("a file", readFile(kFifo));
    std::filesystem::remove(kFifo);

    umask(077);
    collect();
    EXPECT_EQ(std::filesystem::file_type::fifo, std::filesystem::status(kFifo).type());
    EXPECT_EQ(0666u, static_cast<unsigned>(std::filesystem::status(kFifo).permissions()));
    ChildProcess second({"dbgcollect"});
    EXPECT_EQ(1, second.wait());
    EXPECT_THAT(second.errors(), HasSubstr("another collector"));
}

TEST_F(DbgCollectTest, ShowsWholeEntriesOfALevelOrWithATextAlsoThoseThatComeInPieces)
{
    collect({"--level", "2"});
    const std::string error = entry("ERROR", "readMsg: in:\n<HEADER>\nINFO is a word here");
    log(entry("INFO ", "info") + entry("WARN ", "warning") + error + entry("INFO ", "a\nb"));
    log(entry("FATAL", "fatal") + "INFO 22/11/26 2");
    const std::string shown = entry("ERROR", "readMsg: in:\n  | <HEADER>\n  | INFO is a word here");
    expectShown(shown + entry("FATAL", "fatal"), "1:57:00.123 tCfg(7)Unit:1:second\n");
    collector->stop();

    collect({"--grep", "SAVE_CFG"}); // in any line
    const std::string wanted = entry("INFO ", "doWork: msg body:\n<Command ID=\"SAVE_CFG\" >");
    expectShown(entry("INFO ", "doWork: msg body:\n  | <Command ID=\"SAVE_CFG\" >"),
                entry("INFO ", "one") + wanted + entry("INFO ", "two"));
}

TEST_F(DbgCollectTest, ShowsEntriesOfTasksAndGivesEachLineThePriorityThatTheJournalReads)
{
    collect({"--journal", "-t", "tCfg", "--task", "tChan", "-l1"});
    const auto of = [](const std::string& label, const std::string& task) {
        return label + "22/11/26 21:57:00.123 " + task + "(7)Unit:1:";
    };
    log(of("INFO ", "tCfg") + "x\n" + of("WARN ", "tCfg") + "a\nb\n\n" + of("FATAL", "tCfgCom") +
        "tCfg(\n" + of("FATAL", "tChan") + "c\n" + of("ERROR", "tChan") + "\n");
    log(entry("SYS  ", "last"));
    ASSERT_TRUE(collector->waitFor("last\n"));
    EXPECT_EQ("<4>" + of("WARN ", "tCfg") + "a\n<4>  | b\n<4>  | \n<2>" + of("FATAL", "tChan") +
                  "c\n<3>" + of("ERROR", "tChan") + "\n<5>" + entry("SYS  ", "last"),
              collector->output());
}

TEST_F(DbgCollectTest, OpensItsFileAnewWhenItHasBeenRotatedAndKeepsTheOldOneWhereItCannot)
{
    std::filesystem::create_directory("/tmp/logs");
    collect({"-o", "/tmp/logs/log"});
    const auto rotate = [&](const char* directory, const char* rotated) {
        std::filesystem::rename(directory, rotated);
        collector->signal(SIGHUP);
    };
    log(entry("INFO ", "one"));
    EXPECT_TRUE(eventually([] { return !readFile("/tmp/logs/log").empty(); }));
    rotate("/tmp/logs/log", "/tmp/logs/log.1");
    EXPECT_TRUE(eventually([] { return std::filesystem::exists("/tmp/logs/log"); }));
    rotate("/tmp/logs", "/tmp/gone");
    EXPECT_TRUE(collector->waitFor("going on with the old file"));
    log(entry("INFO ", "two"));
    EXPECT_EQ(0, collector->stop(SIGTERM));
    EXPECT_EQ(entry("INFO ", "one"), readFile("/tmp/gone/log.1"));
    EXPECT_EQ(entry("INFO ", "two"), readFile("/tmp/gone/log"));
}

TEST_F(DbgCollectTest, DropsWhatAFullDiskRefusesAndSaysHowMuchOnceItTakesLinesAgain)
{
    std::filesystem::create_symlink("/dev/full", "/tmp/log");
    collect({"-o", "/tmp/log"});
    log(entry("INFO ", "one") + entry("INFO ", "two\nand more"));
    EXPECT_TRUE(collector->waitFor("dropping lines"));
    std::filesystem::remove("/tmp/log");
    collector->signal(SIGHUP);
    EXPECT_TRUE(eventually([] { return std::filesystem::exists("/tmp/log"); }));
    log(entry("INFO ", "three"));
    EXPECT_TRUE(collector->waitFor("writing again, 3 lines are lost"));
    EXPECT_EQ(entry("INFO ", "three"), readFile("/tmp/log"));
}

TEST_F(DbgCollectTest, EscapesWhatWouldChangeATerminalOrAViewer)
{
    collect();
    const std::string message =
        "\033[2J\r\x7f\t\0\xc2\x9b\xe2\x80\xae\xe2\x81\xa6 \x9b\xc0\x80\xe0\x81\x81"
        "\xed\xa0\x80\xf4\x90\x80\x80 \xc3\xa9\xe2\x82\xac\xf0\x9f\x93\xa1\xe2\x82"s;
    expectShown(entry("ERROR", R"(\x1b[2J\x0d\x7f)"
                               "\t"
                               R"(\x00\u009b\u202e\u2066 \x9b\xc0\x80\xe0\x81\x81)"
                               R"(\xed\xa0\x80\xf4\x90\x80\x80 é€📡\xe2\x82)"),
                entry("ERROR", message));
}

TEST_F(DbgCollectTest, GoesOnWhenTheLastWriterLeavesAndColoursOnlyWhenAskedWithoutATerminal)
{
    collect();
    log(entry("ERROR", "before"));
    close(std::exchange(fifo, -1));
    ASSERT_TRUE(collector->waitFor("before"));
    openFifo();
    expectShown(entry("ERROR", "before"), "");
    EXPECT_EQ(0, collector->stop(SIGINT));

    collect({"--color"});
    log(entry("ERROR", "red"));
    ASSERT_TRUE(collector->waitFor("\033[0m\n"));
    EXPECT_THAT(collector->output(), testing::StartsWith("\033[31mERROR"));
}

TEST_F(DbgCollectTest, EndsOnASignalWithAllThatWasLoggedInItsFile)
{
    writeFile("/tmp/log", "earlier\n");
    collect({"-o", "/tmp/log"});
    log(entry("INFO ", "logged") + "half a line");
    EXPECT_EQ(0, collector->stop(SIGTERM));
    EXPECT_EQ("earlier\n" + entry("INFO ", "logged") + "  | half a line", readFile("/tmp/log"));
    EXPECT_TRUE(std::filesystem::exists(kFifo)); // for daemons that have it open
}

} // namespace
