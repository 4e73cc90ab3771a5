// Start-up of the configuration manager: the catalogue, the directory, and what is started at boot.

#include "CfgPaths.h"
#include "ManagerFixture.h"

#include <filesystem>

namespace
{

using std::filesystem::exists;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class StartUpTest : public ManagerFixture
{
protected:
    static void placeFiles(const std::vector<std::string>& names)
    {
        for (const std::string& name : names)
            writeFile("/data/cfg/" + name, "channels");
    }

    const std::string kLoadDefault = commandText("LOAD_CHANNELS", {{"File", "Default"}});
    const std::string kSendDefault =
        "INFO startAutoCfg: sending to/tmp/sockChan command" + kLoadDefault;
};

TEST_F(StartUpTest, FirstBootMakesTheDirectoryAndServesTheFactoryCatalogue)
{
    start();
    EXPECT_THAT(logged(), ElementsAre("INFO init: dataCommunicator started", kSendDefault));
    EXPECT_THAT(commands(), ElementsAre(kLoadDefault));
    EXPECT_THAT(mTable.keys(), IsEmpty());
    EXPECT_EQ("", autoStart());
    EXPECT_TRUE(exists(kStoredCatalogue)); // the scan ends in a store
}

TEST_F(StartUpTest, SecondBootKeepsRowsByTheirFilesAndSaysThatTheDirectoryIsThere)
{
    placeFiles({"x"});
    placeCatalogue({"k=/data/cfg/x"}, "gone");
    start();
    EXPECT_THAT(logged(),
                ElementsAre("INFO init: dir=/data/cfg already exists",
                            "INFO scanForCfgs: file=/data/cfg/x found in cfg entry rowId=k",
                            "INFO init: dataCommunicator started", kSendDefault));
    EXPECT_THAT(mTable.keys(), ElementsAre("k"));
    EXPECT_EQ("k|/data/cfg/x|kept|Available|10000", row("k"));
    EXPECT_EQ("", autoStart()); // it named no row
}

TEST_F(StartUpTest, DirectoryThatCannotBeMadeIsLoggedAndStartUpGoesOn)
{
    std::filesystem::remove_all("/data");
    start();
    EXPECT_THAT(logged(), ElementsAre("ERROR init: Couldn't make dir=/data/cfg errno=2",
                                      "ERROR scanForCfgs: scanDir error dir=/data/cfg",
                                      "INFO init: dataCommunicator started", kSendDefault));
}

TEST_F(StartUpTest, CatalogueOfTheOlderFormatDiscardsEveryStoredFile)
{
    placeFiles({"a", "cfg_stored_set.xml"});
    placeCatalogue({"a"});
    start();
    EXPECT_THAT(mTable.keys(), IsEmpty());
    EXPECT_FALSE(exists("/data/cfg/a") || exists(kLegacyCatalogue));
}

TEST_F(StartUpTest, UnreadableCatalogueIsReplacedAndTheFilesComeBackAsRows)
{
    const char staleTempFile[] = ".cfg_stored_set.json.~storing";
    placeFiles({"b", "a", staleTempFile});
    writeFile(kStoredCatalogue, "{\"dataset\": \"CfgDataSet\", \"comp");
    std::filesystem::create_directories("/data/cfg/directory");
    std::filesystem::create_symlink("/nowhere", "/data/cfg/dangling");
    std::filesystem::last_write_time(
        "/data/cfg/a", std::chrono::file_clock::from_sys(
                           std::chrono::sys_seconds(std::chrono::seconds(1709647629))));
    setenv("TZ", "UTC0", 1);
    start();

    EXPECT_THAT(mTable.keys(), ElementsAre("a", "b"));
    EXPECT_THAT(logged(), ElementsAre("INFO init: dir=/data/cfg already exists",
                                      "INFO scanForCfgs: Added entry rowId=a for file=a",
                                      "INFO scanForCfgs: Added entry rowId=b for file=b",
                                      "ERROR scanForCfgs: Not found file=/data/cfg/dangling",
                                      "INFO init: dataCommunicator started", kSendDefault));
    EXPECT_EQ("a|/data/cfg/a| |Available|10000", row("a"));
    EXPECT_EQ("05-Mar-24  14:07:09", text("a", "Time"));
    EXPECT_FALSE(exists(std::string("/data/cfg/") + staleTempFile));
}

TEST_F(StartUpTest, MissingFileCostsItsRowAndThoseMatchedBeforeIt)
{
    placeFiles({"a", "b", "d", "e"});
    placeCatalogue({"a", "b", "c", "d", "e"});
    start();
    expectLog(R"(
INFO init: dir=/data/cfg already exists
INFO scanForCfgs: file=/data/cfg/a found in cfg entry rowId=a
INFO scanForCfgs: file=/data/cfg/b found in cfg entry rowId=b
INFO scanForCfgs: file=/data/cfg/c not found. Deleted cfg entry rowId=c
INFO scanForCfgs: file=/data/cfg/a not found. Deleted cfg entry rowId=a
INFO scanForCfgs: file=/data/cfg/b not found. Deleted cfg entry rowId=b
INFO scanForCfgs: file=/data/cfg/d found in cfg entry rowId=d
INFO scanForCfgs: file=/data/cfg/e found in cfg entry rowId=e
INFO init: dataCommunicator started
)" + kSendDefault +
              "\n");
    EXPECT_THAT(mTable.keys(), ElementsAre("d", "e"));
    EXPECT_TRUE(exists("/data/cfg/a")); // files stay; the next boot finds them anew
}

TEST_F(StartUpTest, CatalogueOfAnyShapeIsSurvived)
{
    placeFiles({"a"});
    writeFile(kStoredCatalogue,
              R"({"dataset":"CfgDataSet","components":{"ConfigurationsTable":
                  {"properties":[],"instances":[1,"a",{}]},"AutoStart":7}})");
    start();
    expectLogged("INFO init: dataCommunicator started");
    EXPECT_EQ(FC_NO_SUCH_NAME, run("START_CFG", {{"RowID", "a"}}));
}

TEST_F(StartUpTest, AutoStartConfigurationIsStartedInsteadOfTheDefault)
{
    placeFiles({"a"});
    placeCatalogue({"a"}, "a");
    start();
    EXPECT_THAT(commands(), ElementsAre(commandText("LOAD_CHANNELS", {{"File", "/data/cfg/a"}})));
    expectLogged("INFO startAutoCfg: found auto cfg rowId=a");
    EXPECT_EQ("a", autoStart());
}

TEST_F(StartUpTest, FailedAutoStartFallsBackToTheDefaultChannels)
{
    placeFiles({"a"});
    placeCatalogue({"a"}, "a");
    mChannelsResult = FC_DATA_STREAM;
    start();
    EXPECT_THAT(commands(),
                ElementsAre(commandText("LOAD_CHANNELS", {{"File", "/data/cfg/a"}}), kLoadDefault));
    const auto lines = logged();
    EXPECT_THAT(lines, Contains("ERROR startAutoCfg: startConfiguration failed fcode=66048"));
    EXPECT_THAT(lines, Contains("ERROR startAutoCfg: requestCommand failed fcode=66048"));
    EXPECT_EQ("a|/data/cfg/a|kept|Available|10200", row("a"));
}

} // namespace
