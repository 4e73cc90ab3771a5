// Start-up of the configuration manager: the catalogue, the directory, and what is started at boot.

#include "DataSets.h"
#include "DbgPrintClient.h"
#include "ManagerFixture.h"

#include <filesystem>
#include <sys/mount.h>

namespace
{

using std::filesystem::exists;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::StartsWith;

class StartUpTest : public ManagerFixture
{
protected:
    const std::string kSendDefault = "INFO startAutoCfg: sending to/tmp/sockChan command" +
                                     commandText("LOAD_CHANNELS", {{"File", "Default"}});
    const std::string kLoadDefault = "/tmp/sockChan LOAD_CHANNELS Default 200 1";
};

TEST_F(StartUpTest, FirstBootMakesTheDirectoryAndServesTheFactoryCatalogue)
{
    mManager.init();
    EXPECT_THAT(logged(), ElementsAre("INFO init: dataCommunicator started", kSendDefault));
    EXPECT_THAT(mManager.requests, ElementsAre(kLoadDefault));
    EXPECT_THAT(catalogue(), ElementsAre("starts "));
    EXPECT_TRUE(exists(kStoredCatalogue)); // the scan ends in a store
}

TEST_F(StartUpTest, SecondBootKeepsRowsWhoseFilesExistAndClearsAStaleAutoStart)
{
    placeCatalogue({"k=/data/cfg/x"}, "gone");
    mManager.init();
    EXPECT_THAT(logged(),
                ElementsAre("INFO init: dir=/data/cfg already exists",
                            "INFO scanForCfgs: file=/data/cfg/x found in cfg entry rowId=k",
                            "INFO init: dataCommunicator started", kSendDefault));
    // The auto-start named no row.
    EXPECT_THAT(catalogue(), ElementsAre("k=k|/data/cfg/x|kept|Available|10000|N/A", "starts "));
}

TEST_F(StartUpTest, DirectoryThatCannotBeMadeIsLoggedAndStartUpGoesOn)
{
    std::filesystem::remove_all("/data");
    mManager.init();
    EXPECT_THAT(logged(), ElementsAre("ERROR init: Couldn't make dir=/data/cfg errno=2",
                                      "ERROR scanForCfgs: scanDir error dir=/data/cfg",
                                      "INFO init: dataCommunicator started", kSendDefault));
}

TEST_F(StartUpTest, CatalogueOfTheOlderFormatDiscardsEveryStoredFile)
{
    writeFile(kLegacyCatalogue, "");
    placeCatalogue({"a"});
    mManager.init();
    EXPECT_THAT(catalogue(), ElementsAre("starts "));
    EXPECT_FALSE(exists("/data/cfg/a") || exists(kLegacyCatalogue));
}

TEST_F(StartUpTest, UnreadableCatalogueIsReplacedAndTheFilesComeBackAsRows)
{
    const char staleTempFile[] = "/data/cfg/.cfg_stored_set.json.12.~storing";
    std::filesystem::create_directories("/data/cfg/directory");
    struct stat directory = {};
    ASSERT_EQ(0, stat(kCfgDir, &directory));
    const std::string beingStored =
        "/data/cfg/.c." + std::to_string(directory.st_ino) + ".~storing"; // by another process
    for (const char* file : {"/data/cfg/b", "/data/cfg/a", "/data/cfg/.a.12.~storing",
                             beingStored.c_str(), staleTempFile})
        writeFile(file, "channels");
    writeFile(kStoredCatalogue, "{\"dataset\": \"CfgDataSet\", \"comp");
    std::filesystem::create_symlink("/nowhere", "/data/cfg/dangling");
    std::filesystem::last_write_time(
        "/data/cfg/a", std::chrono::file_clock::from_sys(
                           std::chrono::sys_seconds(std::chrono::seconds(1709647629))));
    setenv("TZ", "UTC0", 1);
    mManager.init();

    const std::string copy = kDamagedCatalogue;
    EXPECT_THAT(catalogue(),
                ElementsAre(rowLine(".a.12.~storing"), rowLine("a"), rowLine("b"), "starts "));
    EXPECT_THAT(
        logged(),
        ElementsAre("INFO init: dir=/data/cfg already exists",
                    "ERROR init: Couldn't load the stored catalogue, kept as file=" + copy,
                    std::string("INFO scanForCfgs: Removed stale file=") + staleTempFile,
                    "INFO scanForCfgs: Added entry rowId=.a.12.~storing for file=.a.12.~storing",
                    "INFO scanForCfgs: Added entry rowId=a for file=a",
                    "INFO scanForCfgs: Added entry rowId=b for file=b",
                    "ERROR scanForCfgs: Not found file=/data/cfg/dangling",
                    "INFO init: dataCommunicator started", kSendDefault));
    EXPECT_EQ("05-Mar-24  14:07:09", text("a", "Time"));
    EXPECT_FALSE(exists(staleTempFile));
    EXPECT_TRUE(exists(beingStored.c_str()));
    EXPECT_THAT(readFile(copy), testing::EndsWith("\"comp"));
}

TEST_F(StartUpTest, WhatIsNotThisCatalogueIsKeptAsideAndTheFactorysServes)
{
    const std::string other = R"({"dataset":"DeviceDataSet","components":{}})";
    writeFile("/data/cfg/a", "channels");
    writeFile(kStoredCatalogue, other);
    mManager.init();
    EXPECT_EQ(other, readFile(kDamagedCatalogue));
    EXPECT_THAT(catalogue(), ElementsAre(StartsWith("a="), "starts "));
}

TEST_F(StartUpTest, CatalogueThatIsNoFileAndCannotBeMovedIsServedWithoutACopy)
{
    for (const std::string& directory : {std::string("/tmp/mounted"), kStoredCatalogue})
        std::filesystem::create_directories(directory);
    ASSERT_EQ(0, mount("/tmp/mounted", kStoredCatalogue.c_str(), nullptr, MS_BIND, nullptr));
    mManager.init();
    EXPECT_THAT(logged(),
                Contains("ERROR init: Couldn't load the stored catalogue, nor keep a copy "
                         "of file=" +
                         kStoredCatalogue));
    EXPECT_THAT(catalogue(), ElementsAre("starts "));
    umount(kStoredCatalogue.c_str());
}

TEST_F(StartUpTest, MissingFileRemovesItsRowAndThoseMatchedBeforeIt)
{
    placeCatalogue({"a", "b", "c", "d", "e"});
    std::filesystem::remove("/data/cfg/c");
    mManager.init();
    const auto line = [](const std::string& row, const char* outcome) {
        return "INFO scanForCfgs: file=/data/cfg/" + row + outcome + " cfg entry rowId=" + row;
    };
    const char found[] = " found in", gone[] = " not found. Deleted";
    EXPECT_THAT(logged(),
                ElementsAre(_, line("a", found), line("b", found), line("c", gone), line("a", gone),
                            line("b", gone), line("d", found), line("e", found), _, _));
    EXPECT_THAT(catalogue(), ElementsAre(StartsWith("d="), StartsWith("e="), "starts "));
    EXPECT_TRUE(exists("/data/cfg/a")); // files stay; the next boot finds them anew
}

TEST_F(StartUpTest, CatalogueOfWrongShapesDoesNotStopStartUp)
{
    writeFile("/data/cfg/a", "channels");
    writeFile(kStoredCatalogue,
              R"({"dataset":"CfgDataSet","components":{"ConfigurationsTable":
                  {"properties":[],"instances":[1,"a",{}]},"AutoStart":7}})");
    mManager.init();
    EXPECT_THAT(logged(), Contains("INFO init: dataCommunicator started"));
    EXPECT_EQ(FC_NO_SUCH_NAME, run("START_CFG", {{"RowID", "a"}}));
}

TEST_F(StartUpTest, AutoStartConfigurationIsStartedInsteadOfTheDefault)
{
    placeCatalogue({"a"}, "a");
    DataSets earlierRelease;
    earlierRelease.loadDataSet(kStoredCatalogue);
    earlierRelease.deleteComponent("CfgDataSet", "RunningConfiguration");
    earlierRelease.storeDataSet("CfgDataSet", kStoredCatalogue);
    mManager.init();
    EXPECT_THAT(mManager.requests, ElementsAre("/tmp/sockChan LOAD_CHANNELS /data/cfg/a 120 1"));
    EXPECT_THAT(logged(), IsSupersetOf(Lines{"INFO startAutoCfg: found auto cfg rowId=a",
                                             "INFO startAutoCfg: Executing command=" +
                                                 commandText("START_CFG", {{"RowID", "a"}})}));
    EXPECT_EQ("starts a", catalogue().back());
    EXPECT_EQ("a", running());
}

TEST_F(StartUpTest, FailedAutoStartFallsBackToTheDefaultChannels)
{
    placeCatalogue({"a"}, "a");
    mManager.channelsResult = FC_DATA_STREAM;
    mManager.init();
    EXPECT_EQ(kLoadDefault, mManager.requests.back());
    EXPECT_THAT(logged(),
                IsSupersetOf(Lines{"ERROR startAutoCfg: startConfiguration failed fcode=66048",
                                   "ERROR startAutoCfg: requestCommand failed fcode=66048"}));
    EXPECT_EQ("a=a|/data/cfg/a|kept|Available|10200|N/A", catalogue().front());
    EXPECT_EQ("", running());
}

TEST_F(StartUpTest, ScanOfThousandsOfRowsThatLoseTheirFilesStaysLinear)
{
    std::vector<std::string> keys;
    for (int i = 0; i < 4000; ++i)
        keys.push_back("row" + std::to_string(10000 + i));
    placeCatalogue(keys);
    std::filesystem::remove("/data/cfg/" + keys.back());
    gDbgLevel = 5;
    // A walk that compared every row with every file would outlast the test's limit.
    mManager.init();
    EXPECT_THAT(catalogue(), ElementsAre("starts "));
}

} // namespace
