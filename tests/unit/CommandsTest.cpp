// The commands of the configuration manager: texts, orders, codes, events, files and rows.

#include "CfgPaths.h"
#include "ManagerFixture.h"
#include "MessageEvent.h"

#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class CommandsTest : public ManagerFixture
{
protected:
    /// A running manager with these configurations saved; nothing captured.
    void startWith(const std::vector<std::string>& saved = {})
    {
        start();
        for (const std::string& name : saved)
            EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", name}}));
        events();
        logged();
    }

    static bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

    Fcodes deleteRow(const char* table, int row) { return mManager.deleteRow(table, row); }
};

TEST_F(CommandsTest, SaveAddsARowHasTheFileWrittenStampsItAndAnnouncesIt)
{
    startWith();
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "night"}, {"Description", "low gain"}}));

    const std::string store = "<Command ID=\"STORE_CHANNELS\" >\n\t<Parameter Name=\"File\" "
                              "Value=\"/data/cfg/night\" />\n</Command>\n";
    EXPECT_EQ(store, mChannels->commands().back());
    EXPECT_THAT(logged(),
                ElementsAre("INFO execute: command=SAVE_CFG",
                            "INFO addConfiguration: Generated filename=/data/cfg/night",
                            "INFO addConfiguration: Setting filename=/data/cfg/night to "
                            "table=ConfigurationsTable rowId=night",
                            "INFO addConfiguration: sending to/tmp/sockChan command" + store,
                            "INFO sendEvent: notifying event=Configuration Added cfgName=night "
                            "fcode=10000"));
    EXPECT_THAT(events(), ElementsAre("Configuration Added night 10000"));
    EXPECT_EQ("low gain", text("night", "Description"));
    EXPECT_EQ("night", text("night", "Name"));
    EXPECT_EQ("Available", text("night", "State"));
    EXPECT_NE("N/A", text("night", "Time"));
    EXPECT_EQ(0x10000, fcode("night"));
    EXPECT_THAT(stored(), HasSubstr("low gain"));
    EXPECT_EQ("", autoStart());
}

TEST_F(CommandsTest, SaveUnderAnExistingNameReplacesFileAndRow)
{
    startWith({"a"});
    mManager.initTextParam("CfgDataSet", "ConfigurationsTable", "Description", "old",
                           std::string("a"));
    placeFile("/data/cfg/a", "old content");
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "a"}, {"AutoStart", "true"}}));
    EXPECT_EQ(" ", text("a", "Description"));
    EXPECT_EQ("a", autoStart());
    std::ifstream file("/data/cfg/a");
    EXPECT_EQ("channels", std::string(std::istreambuf_iterator<char>(file), {}));
    EXPECT_THAT(rows(), ElementsAre("a"));

    logged();
    std::filesystem::remove("/data/cfg/a");
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "a"}}));
    EXPECT_THAT(logged(),
                Contains("ERROR addConfiguration: Failed to remove file=/data/cfg/a errno=2"));
}

TEST_F(CommandsTest, SaveThatTheChannelManagerRefusesKeepsTheRowAndIsNotAnnounced)
{
    startWith();
    mChannelsResult = FC_ACCESS_DENIED;
    EXPECT_EQ(FC_ACCESS_DENIED, run("SAVE_CFG", {{"Name", "a"}}));
    EXPECT_THAT(logged(), Contains("ERROR addConfiguration: requestCommand failed fcode=65540"));
    EXPECT_THAT(events(), IsEmpty());
    EXPECT_THAT(rows(), ElementsAre("a"));
    EXPECT_EQ("N/A", text("a", "Time"));
}

TEST_F(CommandsTest, SaveWhoseFileIsMissingIsAnnouncedAsBad)
{
    startWith();
    mWriteFile = false;
    EXPECT_EQ(FC_BAD_VALUE, run("SAVE_CFG", {{"Name", "a"}}));
    EXPECT_THAT(logged(), Contains("ERROR cfgStored: Not found file=/data/cfg/a"));
    EXPECT_THAT(events(), ElementsAre("Configuration Added a 10020"));
    EXPECT_EQ("N/A", text("a", "Time"));
}

TEST_F(CommandsTest, BadCommandsAreRefusedWithTheirOwnWordsAndChangeNothing)
{
    startWith({"a"});
    const std::string catalogue = stored();
    struct Row {
        const char* id;
        std::map<std::string, std::string> parameters;
        Fcodes result;
        std::string lastLine; // of the log; the command's text is put in for %
    };
    const Row table[] = {
        {"SAVE_CFG", {}, FC_BODY_ERROR, "ERROR addConfiguration: Name is empty in command:\n%"},
        {"SAVE_CFG",
         {{"Name", ""}},
         FC_BAD_VALUE,
         "ERROR addConfiguration: Empty cfg name supplied"},
        {"SAVE_CFG",
         {{"Name", ".."}},
         FC_BAD_VALUE,
         "ERROR addConfiguration: Bad filename supplied =.."},
        {"SAVE_CFG",
         {{"Name", "a/b"}},
         FC_BAD_VALUE,
         "ERROR addConfiguration: Bad filename supplied =a/b"},
        {"SAVE_CFG",
         {{"Name", "cfg_stored_set.json"}},
         FC_BAD_VALUE,
         "ERROR addConfiguration: Bad filename supplied =cfg_stored_set.json"},
        {"REMOVE_CFG", {}, FC_BODY_ERROR, "ERROR removeConfiguration: Not Found tag RowID"},
        {"REMOVE_CFG", {{"RowID", "b"}}, FC_NO_SUCH_NAME, "INFO execute: command=REMOVE_CFG"},
        {"SET_AUTOSTART_CFG", {}, FC_BAD_VALUE, "ERROR setAutoStart: No RowID in command:\n%"},
        {"SET_AUTOSTART_CFG",
         {{"RowID", "a"}},
         FC_BAD_VALUE,
         "ERROR setAutoStart: Empty AutoStart | RowID in command:\n%"},
        {"SET_AUTOSTART_CFG",
         {{"RowID", ""}, {"AutoStart", "true"}},
         FC_BAD_VALUE,
         "ERROR setAutoStart: Empty AutoStart | RowID in command:\n%"},
        {"Import Configuration",
         {},
         FC_BAD_VALUE,
         "ERROR importConfiguration: Empty cfg filename supplied"},
        {"Import Configuration",
         {{"File", "/tmp/.."}},
         FC_BAD_VALUE,
         "ERROR importConfiguration: Bad filename supplied =.."},
        {"Import Configuration",
         {{"File", "/"}},
         FC_BAD_VALUE,
         "ERROR importConfiguration: Bad filename supplied =/"},
        {"Import Configuration",
         {{"File", "/tmp/missing"}},
         FC_UNAVAILABLE,
         "ERROR importConfiguration: Couldn't stat filename=/data/cfg/missing"},
        {"Rename Configuration",
         {{"New Name", "b"}},
         FC_BODY_ERROR,
         "ERROR renameConfiguration: Empty cfg name supplied"},
        {"Rename Configuration",
         {{"Name", ""}, {"New Name", "b"}},
         FC_BAD_VALUE,
         "ERROR renameConfiguration: Empty cfg name supplied"},
        {"Rename Configuration",
         {{"Name", "a"}},
         FC_BAD_VALUE,
         "ERROR renameConfiguration: Empty new cfg name supplied"},
        {"Rename Configuration",
         {{"Name", "a"}, {"New Name", "../b"}},
         FC_BAD_VALUE,
         "ERROR renameConfiguration: Bad filename supplied =../b"},
        {"Rename Configuration",
         {{"Name", "b"}, {"New Name", "c"}},
         FC_NO_SUCH_NAME,
         "INFO renameConfiguration: oldname=b new name=c"},
    };
    for (const Row& row : table) {
        EXPECT_EQ(row.result, run(row.id, row.parameters)) << row.lastLine;
        std::string expected = row.lastLine;
        if (expected.back() == '%')
            expected.replace(expected.size() - 1, 1, element(row.id, row.parameters));
        const auto lines = logged();
        EXPECT_EQ("INFO execute: command=" + std::string(row.id), lines.front());
        EXPECT_EQ(expected, lines.back());
    }
    EXPECT_EQ(catalogue, stored());
    EXPECT_TRUE(exists("/data/cfg/a"));
    EXPECT_THAT(events(), IsEmpty());

    std::string response;
    EXPECT_EQ(FC_BODY_ERROR, mManager.execute("<Command >", response));
    EXPECT_THAT(logged(), ElementsAre("ERROR execute: Not found tags ID in:\n<Command >"));
}

TEST_F(CommandsTest, CommandThatIsNotTheManagersOwnGoesToTheWorker)
{
    startWith();
    EXPECT_EQ(FC_OK, run("save_cfg", {{"Name", "a"}}));
    std::string result;
    EXPECT_EQ(FC_BODY_ERROR, mManager.doExecute("no tag", result));
    EXPECT_EQ(FC_OK, mManager.doExecute("<Command ID=\"x\" >", result));
    EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(CommandsTest, StartLoadsTheFileAndAnnouncesTheActivation)
{
    startWith({"a"});
    std::string stateDuringLoad;
    mDuringLoad = [&] { stateDuringLoad = text("a", "State"); };
    EXPECT_EQ(FC_OK, run("START_CFG", {{"RowID", "a"}}));
    const std::string load = "<Command ID=\"LOAD_CHANNELS\" >\n\t<Parameter Name=\"File\" "
                             "Value=\"/data/cfg/a\" />\n</Command>\n";
    EXPECT_EQ("Inprogress", stateDuringLoad);
    EXPECT_THAT(logged(),
                ElementsAre("INFO execute: command=START_CFG", "INFO startConfiguration: name=a",
                            "INFO startConfiguration: sending to/tmp/sockChan command" + load,
                            "INFO sendEvent: notifying event=Configuration Activated cfgName=a "
                            "fcode=10000"));
    EXPECT_THAT(events(), ElementsAre("Configuration Activated a 10000"));
    EXPECT_EQ("Available", text("a", "State"));
}

TEST_F(CommandsTest, StartThatFailsOnTheWayIsAnErrorEventAndTheRowCarriesTheCode)
{
    startWith({"a"});
    mChannelsResult = FC_LOS;
    EXPECT_EQ(FC_LOS, run("START_CFG", {{"RowID", "a"}}));
    EXPECT_THAT(logged(), Contains("ERROR startConfiguration: requestCommand failed fcode=66560"));
    EXPECT_THAT(events(), ElementsAre("Configuration Error a 10400"));
    EXPECT_EQ("Available", text("a", "State"));
    EXPECT_EQ(0x10400, fcode("a"));

    EXPECT_EQ(FC_NO_SUCH_NAME, run("START_CFG", {{"RowID", "unknown"}}));
    EXPECT_EQ(FC_NO_SUCH_NAME, run("START_CFG", {{"RowID", ""}}));
    EXPECT_EQ(FC_BODY_ERROR, run("START_CFG", {}));
    EXPECT_THAT(logged(), Contains("ERROR startConfiguration: Not Found tag RowID"));
    EXPECT_THAT(events(), ElementsAre("Configuration Error unknown 10008",
                                      "Configuration Error  10008", "Configuration Error  10002"));
}

TEST_F(CommandsTest, RowThatIsNotAvailableIsRefusedAndMadeAvailable)
{
    startWith({"a"});
    mManager.initTextParam("CfgDataSet", "ConfigurationsTable", "State", "Inprogress",
                           std::string("a"));
    EXPECT_EQ(FC_UNAVAILABLE, run("START_CFG", {{"RowID", "a"}}));
    EXPECT_THAT(logged(), Contains("ERROR startConfiguration: Cfg row=a state is not AVAILABLE"));
    EXPECT_THAT(events(), ElementsAre("Configuration Error a 10100"));
    EXPECT_EQ("Available", text("a", "State"));
    EXPECT_EQ(0x10100, fcode("a"));
}

TEST_F(CommandsTest, RowWhoseStateCannotBeWrittenEndsAsAnError)
{
    startWith({"a"});
    mDuringLoad = [&] { mManager.deleteDataSet("CfgDataSet"); };
    EXPECT_EQ(FC_NO_SUCH_NAME, run("START_CFG", {{"RowID", "a"}}));
    const auto lines = logged();
    EXPECT_THAT(lines, Contains("ERROR cfgActivated: init failed State | Fcode fcode=65544"));
    EXPECT_THAT(lines, Contains("ERROR startConfiguration: cfgActivated failed fcode=65544"));
    EXPECT_THAT(events(), ElementsAre("Configuration Error a 10008"));
}

TEST_F(CommandsTest, OnlyOneOfTwoStartsAtOncePasses)
{
    startWith({"a"});
    Fcodes second = FC_OK;
    mDuringLoad = [&] {
        mDuringLoad = nullptr;
        second = run("START_CFG", {{"RowID", "a"}});
    };
    const std::size_t before = mChannels->commands().size();
    EXPECT_EQ(FC_OK, run("START_CFG", {{"RowID", "a"}}));
    EXPECT_EQ(FC_UNAVAILABLE, second);
    EXPECT_EQ(before + 1, mChannels->commands().size());
}

TEST_F(CommandsTest, OnlyTheLiteralFalseClearsTheAutoStart)
{
    startWith({"a"});
    const std::pair<const char*, const char*> table[] = {
        {"true", "a"}, {"false", ""}, {"False", "a"}, {"false ", "a"}, {"0", "a"}, {"false", ""}};
    for (const auto& [value, expected] : table) {
        EXPECT_EQ(FC_OK, run("SET_AUTOSTART_CFG", {{"RowID", "a"}, {"AutoStart", value}}));
        EXPECT_EQ(expected, autoStart()) << value;
        EXPECT_THAT(logged(), ElementsAre("INFO execute: command=SET_AUTOSTART_CFG",
                                          "INFO setAutoStart: RowID=a",
                                          std::string("INFO setAutoStart: state=") + value));
    }
    EXPECT_EQ(FC_OK, run("SET_AUTOSTART_CFG", {{"RowID", "no row"}, {"AutoStart", "true"}}));
    EXPECT_EQ("no row", autoStart());
    EXPECT_THAT(stored(), HasSubstr("no row"));
}

TEST_F(CommandsTest, ImportMovesTheFileAndAddsARowThatIsStored)
{
    startWith();
    placeFile("/tmp/in/day 1", "imported");
    EXPECT_EQ(FC_OK, run("Import Configuration", {{"File", "/tmp/in/day 1"},
                                                  {"Description", "from afar"},
                                                  {"AutoStart", "true"}}));
    EXPECT_THAT(logged(), ElementsAre("INFO execute: command=Import Configuration",
                                      "SYS importConfiguration file=/tmp/in/day 1 cfg=day 1",
                                      "INFO importConfiguration: command=mv -f \"/tmp/in/day 1\" "
                                      "/data/cfg/day\\ 1",
                                      "INFO importConfiguration: Added entry rowId=day 1 for "
                                      "file=/data/cfg/day 1"));
    EXPECT_FALSE(exists("/tmp/in/day 1"));
    EXPECT_EQ("/data/cfg/day 1", text("day 1", "File Name"));
    EXPECT_EQ("from afar", text("day 1", "Description"));
    EXPECT_EQ("day 1", autoStart());
    EXPECT_THAT(stored(), HasSubstr("from afar"));
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(CommandsTest, RenameMovesFileRowAndAutoStart)
{
    startWith({"a", "b"});
    run("SET_AUTOSTART_CFG", {{"RowID", "a"}, {"AutoStart", "true"}});
    logged();
    placeFile("/data/cfg/a", "content of a");
    EXPECT_EQ(FC_OK, run("Rename Configuration",
                         {{"Name", "a"}, {"New Name", "b"}, {"Description", "moved"}}));
    EXPECT_THAT(logged(),
                ElementsAre("INFO execute: command=Rename Configuration",
                            "INFO renameConfiguration: oldname=a new name=b",
                            "INFO renameConfiguration: command=mv -f \"/data/cfg/a\" "
                            "\"/data/cfg/b\"",
                            "INFO renameConfiguration: Added entry rowId=b for file=/data/cfg/b"));
    EXPECT_THAT(rows(), ElementsAre("b"));
    EXPECT_EQ("moved", text("b", "Description"));
    EXPECT_EQ("/data/cfg/b", text("b", "File Name"));
    EXPECT_EQ("b", autoStart());
    std::ifstream file("/data/cfg/b");
    EXPECT_EQ("content of a", std::string(std::istreambuf_iterator<char>(file), {}));

    EXPECT_EQ(FC_OK, run("Rename Configuration", {{"Name", "b"}, {"New Name", "b"}}));
    EXPECT_THAT(rows(), ElementsAre("b"));
    EXPECT_EQ("moved", text("b", "Description"));
    EXPECT_TRUE(exists("/data/cfg/b"));
    EXPECT_EQ("b", autoStart());
}

TEST_F(CommandsTest, RenameWhoseFileIsGoneLosesNothing)
{
    startWith({"a", "b"});
    std::filesystem::remove("/data/cfg/a");
    EXPECT_EQ(FC_UNAVAILABLE, run("Rename Configuration", {{"Name", "a"}, {"New Name", "b"}}));
    EXPECT_THAT(logged(),
                Contains("ERROR renameConfiguration: Couldn't stat filename=/data/cfg/b"));
    EXPECT_THAT(rows(), ElementsAre("a", "b"));
    EXPECT_TRUE(exists("/data/cfg/b"));
}

TEST_F(CommandsTest, RemoveDeletesFileRowAndAutoStartWithoutAnEvent)
{
    startWith({"a", "b"});
    run("SET_AUTOSTART_CFG", {{"RowID", "a"}, {"AutoStart", "true"}});
    EXPECT_EQ(FC_OK, run("REMOVE_CFG", {{"RowID", "a"}}));
    EXPECT_THAT(rows(), ElementsAre("b"));
    EXPECT_FALSE(exists("/data/cfg/a"));
    EXPECT_EQ("", autoStart());
    EXPECT_THAT(stored(), Not(HasSubstr("/data/cfg/a")));
    EXPECT_THAT(events(), IsEmpty());

    std::filesystem::remove("/data/cfg/b");
    EXPECT_EQ(FC_OK, run("REMOVE_CFG", {{"RowID", "b"}}));
    EXPECT_THAT(logged(),
                Contains("ERROR removeConfiguration: Failed to remove file=/data/cfg/b errno=2"));
}

TEST_F(CommandsTest, FileNameThatAPeerHasChangedNeverLeadsOutOfTheDirectory)
{
    startWith({"a", "7"});
    placeFile("/data/precious");
    for (const char* row : {"a", "7"})
        mManager.initTextParam("CfgDataSet", "ConfigurationsTable", "File Name", "/data/precious",
                               std::string(row));
    EXPECT_EQ(FC_UNAVAILABLE, run("Rename Configuration", {{"Name", "a"}, {"New Name", "b"}}));
    EXPECT_EQ(FC_OK, run("REMOVE_CFG", {{"RowID", "a"}}));
    EXPECT_EQ(FC_OK, deleteRow("ConfigurationsTable", 7));
    const auto lines = logged();
    EXPECT_THAT(
        lines, Contains("ERROR removeConfiguration: Failed to remove file=/data/precious errno=1"));
    EXPECT_THAT(lines, Contains("ERROR deleteRow: Failed to remove file=/data/precious errno=1"));
    EXPECT_TRUE(exists("/data/precious"));
}

TEST_F(CommandsTest, DeletedRowIsTheOneOfItsDecimalTextAndIsAnnounced)
{
    startWith({"12", "a"});
    EXPECT_EQ(FC_OK, deleteRow("ConfigurationsTable", 12));
    EXPECT_THAT(logged(),
                ElementsAre("INFO deleteRow: CFG removed row=12 fcode=65536",
                            "INFO sendEvent: notifying event=Configuration Removed cfgName=12 "
                            "fcode=10000"));
    EXPECT_THAT(events(), ElementsAre("Configuration Removed 12 10000"));
    EXPECT_THAT(rows(), ElementsAre("a"));
    EXPECT_THAT(stored(), Not(HasSubstr("/data/cfg/12")));
    EXPECT_FALSE(exists("/data/cfg/12"));

    EXPECT_EQ(FC_BAD_VALUE | FC_NO_SUCH_NAME, deleteRow("ConfigurationsTable", 12));
    EXPECT_THAT(logged(), Contains("ERROR deleteRow: Not Found File Name in "
                                   "table=ConfigurationsTable row=12 fcode=65544"));
    EXPECT_EQ(FC_OK, deleteRow("Other", 1));
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(CommandsTest, FilesDroppedInUnderAnyNameCanBeRemovedAndRenamed)
{
    placeFile("/data/cfg/  ");
    placeFile("/data/cfg/a\nb");
    startWith();
    EXPECT_EQ(FC_OK, run("Rename Configuration", {{"Name", "  "}, {"New Name", "sane"}}));
    EXPECT_EQ(FC_OK, run("REMOVE_CFG", {{"RowID", "a\nb"}}));
    EXPECT_FALSE(exists("/data/cfg/a\nb"));
    EXPECT_THAT(rows(), ElementsAre("sane"));
}

TEST_F(CommandsTest, RowThatCannotHoldAllPropertiesIsReportedAndReplacedAllTheSame)
{
    startWith({"a"});
    std::ofstream("/tmp/lacking.json") << R"({"dataset":"CfgDataSet","components":{
        "AutoStart":{"instance":{"Name":""},"properties":{"Name":{"type":"string"}}},
        "ConfigurationsTable":{"properties":{"File Name":{"type":"string","default":""}},
            "instances":{"a":{"File Name":"/data/cfg/a"}}}}})";
    ASSERT_EQ(FC_OK, mManager.loadDataSet("/tmp/lacking.json"));
    EXPECT_EQ(FC_NO_SUCH_NAME, run("Rename Configuration", {{"Name", "a"}, {"New Name", "b"}}));
    EXPECT_THAT(logged(),
                Contains("ERROR importConfiguration: Couldn't replace name=a with new=b"));
    EXPECT_THAT(rows(), ElementsAre("b"));

    EXPECT_EQ(FC_NO_SUCH_NAME, run("SAVE_CFG", {{"Name", "c"}}));
    EXPECT_THAT(logged(), Contains("ERROR addConfiguration: Failed accept changes fcode=65544"));
}

TEST_F(CommandsTest, RowThatIsLoadingIsNotDeleted)
{
    startWith({"3"});
    Fcodes result = FC_OK;
    mDuringLoad = [&] { result = deleteRow("ConfigurationsTable", 3); };
    EXPECT_EQ(FC_OK, run("START_CFG", {{"RowID", "3"}}));
    EXPECT_EQ(FC_ACCESS_DENIED, result);
    EXPECT_THAT(rows(), ElementsAre("3"));
}

TEST_F(CommandsTest, EventOfTheDeviceManagerSetsTheZone)
{
    startWith();
    MessageEvent event;
    event.ID = "Date&Time Updated";
    EXPECT_EQ(FC_OK, mManager.doHandle(&event));
    EXPECT_THAT(logged(), ElementsAre("INFO doHandle: arrived event=Date&Time Updated"));
    event.addParam("TZ", "ABC-3");
    EXPECT_EQ(FC_OK, mManager.doHandle(&event));
    EXPECT_THAT(logged(), ElementsAre("INFO doHandle: arrived event=Date&Time Updated",
                                      "SYS doHandle: setenv TZ=ABC-3"));
    EXPECT_STREQ("ABC-3", getenv("TZ"));
    event.ID = "Channels Loaded";
    event.addParam("TZ", "UTC0");
    EXPECT_EQ(FC_OK, mManager.doHandle(&event));
    EXPECT_STREQ("ABC-3", getenv("TZ"));
}

} // namespace
