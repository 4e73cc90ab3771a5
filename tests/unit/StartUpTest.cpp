// Start-up of the configuration manager: the catalogue, the directory, and what is started at boot.

#include "CfgPaths.h"
#include "DbgPrintClient.h"
#include "ManagerFixture.h"

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using StartUpTest = ManagerFixture;

const std::string kLoadDefault = "<Command ID=\"LOAD_CHANNELS\" >\n\t<Parameter Name=\"File\" "
                                 "Value=\"Default\" />\n</Command>\n";

TEST_F(StartUpTest, FirstBootMakesTheDirectoryAndServesTheFactoryCatalogue)
{
    start();
    EXPECT_THAT(logged(),
                ElementsAre("INFO init: dataCommunicator started",
                            "INFO startAutoCfg: sending to/tmp/sockChan command" + kLoadDefault));
    EXPECT_THAT(mChannels->commands(), ElementsAre(kLoadDefault));
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_EQ("", autoStart());
    EXPECT_EQ(0, access(kStoredCatalogue, F_OK)); // the scan ends in a store
}

TEST_F(StartUpTest, SecondBootKeepsRowsAndSaysThatTheDirectoryIsThere)
{
    placeFile("/data/cfg/a");
    placeCatalogue({"a"}, "gone");
    start();
    EXPECT_THAT(logged(),
                ElementsAre("INFO init: dir=/data/cfg already exists",
                            "INFO scanForCfgs: file=/data/cfg/a found in cfg entry rowId=a",
                            "INFO init: dataCommunicator started",
                            "INFO startAutoCfg: sending to/tmp/sockChan command" + kLoadDefault));
    EXPECT_EQ("Available", text("a", "State"));
    EXPECT_EQ("kept", text("a", "Description"));
    EXPECT_EQ(0x10000, fcode("a"));
    EXPECT_EQ("", autoStart()); // it named no row
}

TEST_F(StartUpTest, DirectoryThatCannotBeMadeIsLoggedAndStartUpGoesOn)
{
    std::filesystem::remove_all("/data");
    start();
    EXPECT_THAT(logged(),
                ElementsAre("ERROR init: Couldn't make dir=/data/cfg errno=2",
                            "ERROR scanForCfgs: scanDir error dir=/data/cfg",
                            "INFO init: dataCommunicator started",
                            "INFO startAutoCfg: sending to/tmp/sockChan command" + kLoadDefault));
}

TEST_F(StartUpTest, CatalogueOfTheOlderFormatDiscardsEveryStoredFile)
{
    placeFile("/data/cfg/a");
    placeFile(kLegacyCatalogue, "<xml/>");
    placeCatalogue({"a"});
    start();
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_NE(0, access("/data/cfg/a", F_OK));
    EXPECT_NE(0, access(kLegacyCatalogue, F_OK));
}

TEST_F(StartUpTest, UnreadableCatalogueIsReplacedAndTheFilesComeBackAsRows)
{
    placeFile(kStoredCatalogue, "{\"dataset\": \"CfgDataSet\", \"comp");
    placeFile("/data/cfg/b");
    placeFile("/data/cfg/a");
    std::filesystem::create_directories("/data/cfg/directory");
    std::filesystem::create_symlink("/nowhere", "/data/cfg/dangling");
    std::filesystem::last_write_time(
        "/data/cfg/a", std::chrono::file_clock::from_sys(
                           std::chrono::sys_seconds(std::chrono::seconds(1709647629))));
    setenv("TZ", "UTC0", 1);
    start();

    EXPECT_THAT(rows(), ElementsAre("a", "b"));
    EXPECT_THAT(logged(),
                ElementsAre("INFO init: dir=/data/cfg already exists",
                            "INFO scanForCfgs: Added entry rowId=a for file=a",
                            "INFO scanForCfgs: Added entry rowId=b for file=b",
                            "ERROR scanForCfgs: Not found file=/data/cfg/dangling",
                            "INFO init: dataCommunicator started",
                            "INFO startAutoCfg: sending to/tmp/sockChan command" + kLoadDefault));
    EXPECT_EQ("/data/cfg/a", text("a", "File Name"));
    EXPECT_EQ("a", text("a", "Name"));
    EXPECT_EQ(" ", text("a", "Description"));
    EXPECT_EQ("05-Mar-24  14:07:09", text("a", "Time"));
    EXPECT_EQ("Available", text("a", "State"));
    EXPECT_EQ(0x10000, fcode("a"));
}

TEST_F(StartUpTest, MissingFileCostsItsRowAndThoseMatchedBeforeIt)
{
    for (const char* file : {"a", "b", "d", "e"})
        placeFile(std::string("/data/cfg/") + file);
    placeCatalogue({"a", "b", "c", "d", "e"});
    start();
    const auto dropped = [](const std::string& row) {
        return "INFO scanForCfgs: file=/data/cfg/" + row +
               " not found. Deleted cfg entry rowId=" + row;
    };
    const auto found = [](const std::string& row) {
        return "INFO scanForCfgs: file=/data/cfg/" + row + " found in cfg entry rowId=" + row;
    };
    auto lines = logged();
    lines.erase(lines.begin()); // the directory's
    lines.resize(7);
    EXPECT_THAT(lines, ElementsAre(found("a"), found("b"), dropped("c"), dropped("a"), dropped("b"),
                                   found("d"), found("e")));
    EXPECT_THAT(rows(), ElementsAre("d", "e"));
    EXPECT_EQ(0, access("/data/cfg/a", F_OK)); // files stay; the next boot finds them anew
}

TEST_F(StartUpTest, RowsAreMatchedByFileNotByKeyAndOneFileServesOneRow)
{
    placeFile("/data/cfg/x");
    placeCatalogue({"k=/data/cfg/x"});
    start();
    EXPECT_THAT(rows(), ElementsAre("k"));
    std::string rowId;
    EXPECT_EQ(FC_OK, mManager.getRowIdByFilename("/data/cfg/x", rowId));
    EXPECT_EQ("k", rowId);
    EXPECT_EQ(FC_UNAVAILABLE, mManager.getRowIdByFilename("/data/cfg/k", rowId));
    EXPECT_EQ("", rowId);
}

TEST_F(StartUpTest, LeftOverOfACutOffStoreIsSweptAndIsNoRow)
{
    const std::string leftOver = ".cfg_stored_set.json.~storing";
    placeFile("/data/cfg/" + leftOver, "half a docu");
    start();
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_NE(0, access(("/data/cfg/" + leftOver).c_str(), F_OK));
}

TEST_F(StartUpTest, CatalogueOfAnyShapeIsSurvived)
{
    placeFile("/data/cfg/a");
    placeFile(kStoredCatalogue,
              R"({"dataset":"CfgDataSet","components":{"ConfigurationsTable":
                  {"properties":[],"instances":[1,"a",{}]},"AutoStart":7}})");
    start();
    EXPECT_THAT(logged(), Contains("INFO init: dataCommunicator started"));
    EXPECT_EQ(FC_NO_SUCH_NAME, run("START_CFG", {{"RowID", "a"}}));
}

TEST_F(StartUpTest, AutoStartConfigurationIsStartedInsteadOfTheDefault)
{
    placeFile("/data/cfg/a");
    placeCatalogue({"a"}, "a");
    start();
    EXPECT_THAT(mChannels->commands(),
                ElementsAre("<Command ID=\"LOAD_CHANNELS\" >\n"
                            "\t<Parameter Name=\"File\" Value=\"/data/cfg/a\" />\n</Command>\n"));
    const auto lines = logged();
    EXPECT_THAT(lines, Contains("INFO startAutoCfg: found auto cfg rowId=a"));
    EXPECT_THAT(lines, Contains("INFO startAutoCfg: Executing command=" +
                                element("START_CFG", {{"RowID", "a"}})));
    EXPECT_EQ("Available", text("a", "State"));
    EXPECT_EQ("a", autoStart());
}

TEST_F(StartUpTest, FailedAutoStartFallsBackToTheDefaultChannels)
{
    placeFile("/data/cfg/a");
    placeCatalogue({"a"}, "a");
    mChannelsResult = FC_DATA_STREAM;
    start();
    EXPECT_EQ(2u, mChannels->commands().size());
    EXPECT_EQ(kLoadDefault, mChannels->commands().back());
    const auto lines = logged();
    EXPECT_THAT(lines, Contains("ERROR startAutoCfg: startConfiguration failed fcode=66048"));
    EXPECT_THAT(lines, Contains("ERROR startAutoCfg: requestCommand failed fcode=66048"));
    EXPECT_EQ(0x10200, fcode("a"));
}

TEST_F(StartUpTest, ScanOfThousandsOfRowsThatLoseTheirFilesStaysLinear)
{
    std::vector<std::string> keys;
    for (int i = 0; i < 4000; ++i) {
        const std::string key = "row" + std::to_string(10000 + i);
        keys.push_back(key);
        if (i != 3999)
            placeFile("/data/cfg/" + key);
    }
    placeCatalogue(keys);
    gDbgLevel = 5;
    start(); // a walk that compared every row with every file would outlast the test's limit
    EXPECT_THAT(rows(), IsEmpty());
}

} // namespace
