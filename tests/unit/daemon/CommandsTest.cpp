// The commands of the configuration manager: texts, orders, codes, events, files and rows.

#include "CfgPaths.h"
#include "ManagerFixture.h"
#include "MessageEvent.h"

#include <filesystem>

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Events = std::vector<std::string>;

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

    Fcodes load(const std::string& row) { return run("START_CFG", {{"RowID", row}}); }
    Fcodes remove(const std::string& row) { return run("REMOVE_CFG", {{"RowID", row}}); }
    Fcodes rename(const std::string& name, const std::string& newName)
    {
        return run("Rename Configuration", {{"Name", name}, {"New Name", newName}});
    }
    Fcodes setAutoStart(const std::string& row, const std::string& value)
    {
        return run("SET_AUTOSTART_CFG", {{"RowID", row}, {"AutoStart", value}});
    }
    Fcodes deleteRow(const char* table, int row) { return mManager.deleteRow(table, row); }
};

TEST_F(CommandsTest, SaveAddsARowHasTheFileWrittenStampsItAndAnnouncesIt)
{
    startWith();
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "night"}, {"Description", "low gain"}}));
    const std::string store = commandText("STORE_CHANNELS", {{"File", "/data/cfg/night"}});
    EXPECT_EQ(store, commands().back());
    expectLog(R"(
INFO execute: command=SAVE_CFG
INFO addConfiguration: Generated filename=/data/cfg/night
INFO addConfiguration: Setting filename=/data/cfg/night to table=ConfigurationsTable rowId=night
INFO addConfiguration: sending to/tmp/sockChan command)" +
              store + R"(
INFO sendEvent: notifying event=Configuration Added cfgName=night fcode=10000
)");
    EXPECT_EQ(Events{"Configuration Added night 10000"}, events());
    EXPECT_EQ("night|/data/cfg/night|low gain|Available|10000", row("night"));
    EXPECT_NE("N/A", text("night", "Time"));
    EXPECT_THAT(readFile(kStoredCatalogue), HasSubstr("low gain"));
    EXPECT_EQ("", autoStart());
}

TEST_F(CommandsTest, SaveUnderAnExistingNameReplacesFileAndRow)
{
    startWith({"a"});
    mTable.writeText("a", "Description", "old");
    writeFile("/data/cfg/a", "old content");
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "a"}, {"AutoStart", "true"}}));
    EXPECT_EQ("a|/data/cfg/a| |Available|10000", row("a"));
    EXPECT_EQ("a", autoStart());
    EXPECT_EQ("channels", readFile("/data/cfg/a"));
    EXPECT_THAT(mTable.keys(), ElementsAre("a"));

    std::filesystem::remove("/data/cfg/a");
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "a"}}));
    expectLogged("ERROR addConfiguration: Failed to remove file=/data/cfg/a errno=2");
}

TEST_F(CommandsTest, SaveThatFailsKeepsTheRowUnstampedAndOnlyAMissingFileIsAnnounced)
{
    startWith();
    mChannelsResult = FC_ACCESS_DENIED;
    EXPECT_EQ(FC_ACCESS_DENIED, run("SAVE_CFG", {{"Name", "a"}}));
    expectLogged("ERROR addConfiguration: requestCommand failed fcode=65540");
    EXPECT_EQ(Events{}, events());

    mChannelsResult = FC_OK;
    mWriteFile = false;
    EXPECT_EQ(FC_BAD_VALUE, run("SAVE_CFG", {{"Name", "b"}}));
    expectLogged("ERROR cfgStored: Not found file=/data/cfg/b");
    EXPECT_EQ(Events{"Configuration Added b 10020"}, events());
    EXPECT_THAT(mTable.keys(), ElementsAre("a", "b"));
    EXPECT_EQ("N/A", text("a", "Time"));
    EXPECT_EQ("N/A", text("b", "Time"));
}

TEST_F(CommandsTest, BadCommandsAreRefusedWithTheirOwnWordsAndChangeNothing)
{
    startWith({"a"});
    const std::string catalogue = readFile(kStoredCatalogue);
    const std::string import = "Import Configuration";
    const std::string rename = "Rename Configuration";
    const struct {
        std::string id;
        std::map<std::string, std::string> parameters;
        Fcodes result;
        std::string lastLine; // of the log; the command's text is put in for %
    } table[] = {
        // clang-format off
        {"SAVE_CFG", {}, FC_BODY_ERROR, "ERROR addConfiguration: Name is empty in command:\n%"},
        {"SAVE_CFG", {{"Name", ""}}, FC_BAD_VALUE, "ERROR addConfiguration: Empty cfg name supplied"},
        {"SAVE_CFG", {{"Name", ".."}}, FC_BAD_VALUE, "ERROR addConfiguration: Bad filename supplied =.."},
        {"REMOVE_CFG", {}, FC_BODY_ERROR, "ERROR removeConfiguration: Not Found tag RowID"},
        {"REMOVE_CFG", {{"RowID", "b"}}, FC_NO_SUCH_NAME, "ERROR removeConfiguration: Not Found row=b in table=ConfigurationsTable"},
        {"SET_AUTOSTART_CFG", {}, FC_BAD_VALUE, "ERROR setAutoStart: No RowID in command:\n%"},
        {"SET_AUTOSTART_CFG", {{"RowID", "a"}}, FC_BAD_VALUE, "ERROR setAutoStart: Empty AutoStart | RowID in command:\n%"},
        {"SET_AUTOSTART_CFG", {{"RowID", ""}, {"AutoStart", "true"}}, FC_BAD_VALUE, "ERROR setAutoStart: Empty AutoStart | RowID in command:\n%"},
        {import, {}, FC_BAD_VALUE, "ERROR importConfiguration: Empty cfg filename supplied"},
        {import, {{"File", "/tmp/.."}}, FC_BAD_VALUE, "ERROR importConfiguration: Bad filename supplied =.."},
        {import, {{"File", "/"}}, FC_BAD_VALUE, "ERROR importConfiguration: Bad filename supplied =/"},
        {import, {{"File", "/tmp/missing"}}, FC_UNAVAILABLE, "ERROR importConfiguration: Couldn't stat filename=/data/cfg/missing"},
        {rename, {{"New Name", "b"}}, FC_BODY_ERROR, "ERROR renameConfiguration: Empty cfg name supplied"},
        {rename, {{"Name", ""}, {"New Name", "b"}}, FC_BAD_VALUE, "ERROR renameConfiguration: Empty cfg name supplied"},
        {rename, {{"Name", "a"}}, FC_BAD_VALUE, "ERROR renameConfiguration: Empty new cfg name supplied"},
        {rename, {{"Name", "a"}, {"New Name", "../b"}}, FC_BAD_VALUE, "ERROR renameConfiguration: Bad filename supplied =../b"},
        {rename, {{"Name", "b"}, {"New Name", "c"}}, FC_NO_SUCH_NAME, "ERROR renameConfiguration: Couldn't stat filename=/data/cfg/c"},
        // clang-format on
    };
    for (auto [id, parameters, result, lastLine] : table) {
        EXPECT_EQ(result, run(id, parameters)) << lastLine;
        if (lastLine.ends_with('%'))
            lastLine.replace(lastLine.size() - 1, 1, commandText(id, parameters));
        const auto lines = logged();
        EXPECT_EQ("INFO execute: command=" + id, lines.front());
        EXPECT_EQ(lastLine, lines.back());
    }
    EXPECT_EQ(catalogue, readFile(kStoredCatalogue));
    EXPECT_EQ("channels", readFile("/data/cfg/a"));
    EXPECT_EQ(Events{}, events());

    std::string response;
    EXPECT_EQ(FC_BODY_ERROR, mManager.execute("<Command >", response));
    EXPECT_THAT(logged(), ElementsAre("ERROR execute: Not found tags ID in:\n<Command >"));
    EXPECT_EQ(FC_OK, run("save_cfg", {{"Name", "b"}})); // not the manager's own: the worker's
    EXPECT_THAT(mTable.keys(), ElementsAre("a"));
}

TEST_F(CommandsTest, StartLoadsTheFileAndAnnouncesTheActivation)
{
    startWith({"a"});
    std::string stateDuringLoad;
    mDuringLoad = [&] { stateDuringLoad = text("a", "State"); };
    EXPECT_EQ(FC_OK, load("a"));
    EXPECT_EQ("Inprogress", stateDuringLoad);
    expectLog(R"(
INFO execute: command=START_CFG
INFO startConfiguration: name=a
INFO startConfiguration: sending to/tmp/sockChan command)" +
              commandText("LOAD_CHANNELS", {{"File", "/data/cfg/a"}}) + R"(
INFO sendEvent: notifying event=Configuration Activated cfgName=a fcode=10000
)");
    EXPECT_EQ(Events{"Configuration Activated a 10000"}, events());
    EXPECT_EQ("Available", text("a", "State"));
}

TEST_F(CommandsTest, StartThatFailsOnTheWayIsAnErrorEventAndTheRowCarriesTheCode)
{
    startWith({"a"});
    mChannelsResult = FC_LOS;
    EXPECT_EQ(FC_LOS, load("a"));
    expectLogged("ERROR startConfiguration: requestCommand failed fcode=66560");
    EXPECT_EQ("a|/data/cfg/a| |Available|10400", row("a"));

    EXPECT_EQ(FC_NO_SUCH_NAME, load("unknown"));
    EXPECT_EQ(FC_BODY_ERROR, run("START_CFG", {}));
    expectLogged("ERROR startConfiguration: Not Found tag RowID");
    EXPECT_THAT(events(),
                ElementsAre("Configuration Error a 10400", "Configuration Error unknown 10008",
                            "Configuration Error  10002"));
}

TEST_F(CommandsTest, RowThatIsNotAvailableIsRefusedAndMadeAvailable)
{
    startWith({"3"});
    mTable.writeText("3", "State", "Inprogress");
    const std::size_t before = commands().size();
    EXPECT_EQ(FC_ACCESS_DENIED, deleteRow("ConfigurationsTable", 3));
    EXPECT_EQ(FC_UNAVAILABLE, load("3"));
    EXPECT_EQ(before, commands().size());
    expectLogged("ERROR startConfiguration: Cfg row=3 state is not AVAILABLE");
    EXPECT_EQ(Events{"Configuration Error 3 10100"}, events());
    EXPECT_EQ("3|/data/cfg/3| |Available|10100", row("3"));
}

TEST_F(CommandsTest, RowWhoseStateCannotBeWrittenEndsAsAnError)
{
    startWith({"a"});
    mDuringLoad = [&] { mManager.deleteDataSet("CfgDataSet"); };
    EXPECT_EQ(FC_NO_SUCH_NAME, load("a"));
    const auto lines = logged();
    EXPECT_THAT(lines, Contains("ERROR cfgActivated: init failed State | Fcode fcode=65544"));
    EXPECT_THAT(lines, Contains("ERROR startConfiguration: cfgActivated failed fcode=65544"));
    EXPECT_EQ(Events{"Configuration Error a 10008"}, events());
}

TEST_F(CommandsTest, OnlyTheLiteralFalseClearsTheAutoStart)
{
    startWith({"a"});
    const std::pair<const char*, const char*> table[] = {
        {"true", "a"}, {"false", ""}, {"False", "a"}, {"false", ""}, {"false ", "a"}, {"0", "a"}};
    for (const auto& [value, expected] : table) {
        EXPECT_EQ(FC_OK, setAutoStart("a", value));
        EXPECT_EQ(expected, autoStart()) << value;
        expectLogged(std::string("INFO setAutoStart: state=") + value);
    }
    EXPECT_EQ(FC_OK, setAutoStart("no row", "true"));
    EXPECT_THAT(readFile(kStoredCatalogue), HasSubstr("no row"));
}

TEST_F(CommandsTest, ImportMovesTheFileAndAddsARowThatIsStored)
{
    startWith();
    writeFile("/tmp/in/day 1", "imported");
    EXPECT_EQ(FC_OK, run("Import Configuration", {{"File", "/tmp/in/day 1"},
                                                  {"Description", "from a stick"},
                                                  {"AutoStart", "true"}}));
    expectLog(R"(
INFO execute: command=Import Configuration
SYS importConfiguration file=/tmp/in/day 1 cfg=day 1
INFO importConfiguration: command=mv -f "/tmp/in/day 1" /data/cfg/day\ 1
INFO importConfiguration: Added entry rowId=day 1 for file=/data/cfg/day 1
)");
    EXPECT_FALSE(std::filesystem::exists("/tmp/in/day 1"));
    EXPECT_EQ("day 1|/data/cfg/day 1|from a stick|Available|10000", row("day 1"));
    EXPECT_EQ("day 1", autoStart());
    EXPECT_THAT(readFile(kStoredCatalogue), HasSubstr("from a stick"));
    EXPECT_EQ(Events{}, events());
}

TEST_F(CommandsTest, RenameMovesFileRowAndAutoStart)
{
    startWith({"a", "b"});
    setAutoStart("a", "true");
    logged();
    writeFile("/data/cfg/a", "content of a");
    EXPECT_EQ(FC_OK, run("Rename Configuration",
                         {{"Name", "a"}, {"New Name", "b"}, {"Description", "moved"}}));
    expectLog(R"(
INFO execute: command=Rename Configuration
INFO renameConfiguration: oldname=a new name=b
INFO renameConfiguration: command=mv -f "/data/cfg/a" "/data/cfg/b"
INFO renameConfiguration: Added entry rowId=b for file=/data/cfg/b
)");
    const auto expectMoved = [this] {
        EXPECT_THAT(mTable.keys(), ElementsAre("b"));
        EXPECT_EQ("b|/data/cfg/b|moved|Available|10000", row("b"));
        EXPECT_EQ("b", autoStart());
        EXPECT_EQ("content of a", readFile("/data/cfg/b"));
    };
    expectMoved();
    EXPECT_EQ(FC_OK, rename("b", "b"));
    expectMoved();
}

TEST_F(CommandsTest, RenameWhoseFileIsGoneLosesNothing)
{
    writeFile("/data/cfg/  ", ""); // a name that no command would have taken
    startWith({"b"});
    EXPECT_EQ(FC_OK, rename("  ", "a"));
    std::filesystem::remove("/data/cfg/a");
    EXPECT_EQ(FC_UNAVAILABLE, rename("a", "b"));
    expectLogged("ERROR renameConfiguration: Couldn't stat filename=/data/cfg/b");
    EXPECT_THAT(mTable.keys(), ElementsAre("a", "b"));
    EXPECT_EQ("channels", readFile("/data/cfg/b"));
}

TEST_F(CommandsTest, RemoveDeletesFileRowAndAutoStartWithoutAnEvent)
{
    writeFile("/data/cfg/a\nb", ""); // a name that no command would have taken
    startWith({"a", "b"});
    setAutoStart("a", "true");
    EXPECT_EQ(FC_OK, remove("a"));
    EXPECT_EQ(FC_OK, remove("a\nb"));
    EXPECT_FALSE(std::filesystem::exists("/data/cfg/a\nb"));
    EXPECT_THAT(mTable.keys(), ElementsAre("b"));
    EXPECT_EQ("", readFile("/data/cfg/a"));
    EXPECT_EQ("", autoStart());
    EXPECT_THAT(readFile(kStoredCatalogue), Not(HasSubstr("/data/cfg/a")));
    EXPECT_EQ(Events{}, events());

    std::filesystem::remove("/data/cfg/b");
    EXPECT_EQ(FC_OK, remove("b"));
    expectLogged("ERROR removeConfiguration: Failed to remove file=/data/cfg/b errno=2");
}

TEST_F(CommandsTest, FileNameThatAPeerHasChangedNeverLeadsOutOfTheDirectory)
{
    startWith({"a", "7"});
    writeFile("/data/precious", "kept");
    mTable.writeText("a", "File Name", "/data/precious");
    mTable.writeText("7", "File Name", "/data/precious");
    EXPECT_EQ(FC_UNAVAILABLE, rename("a", "b"));
    EXPECT_EQ(FC_UNAVAILABLE, remove("a"));
    EXPECT_EQ(FC_OK, deleteRow("ConfigurationsTable", 7));
    EXPECT_THAT(mTable.keys(), IsEmpty());
    const std::string refused = ": Failed to remove file=/data/precious errno=1";
    const auto lines = logged();
    EXPECT_THAT(lines, Contains("ERROR removeConfiguration" + refused));
    EXPECT_THAT(lines, Contains("ERROR deleteRow" + refused));
    EXPECT_EQ("kept", readFile("/data/precious"));
}

TEST_F(CommandsTest, DeletedRowIsTheOneOfItsDecimalTextAndIsAnnounced)
{
    startWith({"12", "a"});
    EXPECT_EQ(FC_OK, deleteRow("ConfigurationsTable", 12));
    expectLogged("INFO deleteRow: CFG removed row=12 fcode=65536");
    EXPECT_THAT(mTable.keys(), ElementsAre("a"));
    EXPECT_THAT(readFile(kStoredCatalogue), Not(HasSubstr("/data/cfg/12")));
    EXPECT_EQ("", readFile("/data/cfg/12"));

    EXPECT_EQ(FC_BAD_VALUE | FC_NO_SUCH_NAME, deleteRow("ConfigurationsTable", 12));
    EXPECT_THAT(logged(), Contains("ERROR deleteRow: Not Found File Name in "
                                   "table=ConfigurationsTable row=12 fcode=65544"));
    EXPECT_EQ(FC_OK, deleteRow("Other", 1));
    EXPECT_EQ(Events{"Configuration Removed 12 10000"}, events());
}

TEST_F(CommandsTest, RowThatCannotHoldAllPropertiesIsReportedAndReplacedAllTheSame)
{
    startWith({"a"});
    writeFile("/tmp/lacking.json", R"({"dataset":"CfgDataSet","components":{
        "AutoStart":{"instance":{"Name":""},"properties":{"Name":{"type":"string"}}},
        "ConfigurationsTable":{"properties":{"File Name":{"type":"string","default":""}},
            "instances":{"a":{"File Name":"/data/cfg/a"}}}}})");
    ASSERT_EQ(FC_OK, mManager.loadDataSet("/tmp/lacking.json"));
    EXPECT_EQ(FC_NO_SUCH_NAME, rename("a", "b"));
    expectLogged("ERROR importConfiguration: Couldn't replace name=a with new=b");
    EXPECT_THAT(mTable.keys(), ElementsAre("b"));

    EXPECT_EQ(FC_NO_SUCH_NAME, run("SAVE_CFG", {{"Name", "c"}}));
    expectLogged("ERROR addConfiguration: Failed accept changes fcode=65544");
}

TEST_F(CommandsTest, OperationsOfTheManagerAreOpenToItsUsers)
{
    startWith({"a"});
    mManager.sendEvent("Any Event", "any name", 0x10020U);
    EXPECT_EQ(FC_OK, mManager.cfgStored("a"));
    EXPECT_EQ(FC_OK, mManager.cfgActivated("a"));
    EXPECT_THAT(events(), ElementsAre("Any Event any name 10020", "Configuration Added a 10000",
                                      "Configuration Activated a 10000"));
    std::string found = "untouched";
    EXPECT_EQ(FC_BAD_VALUE, mManager.generateFilename("", found));
    EXPECT_EQ("untouched", found);
    EXPECT_EQ(FC_OK, mManager.getRowIdByFilename("/data/cfg/a", found));
    EXPECT_EQ("a", found);
    EXPECT_EQ(FC_UNAVAILABLE, mManager.getRowIdByFilename("/data/cfg/b", found));
    EXPECT_EQ("", found);
}

TEST_F(CommandsTest, OneEventOfTheDeviceManagerSetsTheZone)
{
    startWith();
    MessageEvent event;
    for (const char* id : {"Channels Loaded", "Date&Time Updated"}) {
        EXPECT_EQ(nullptr, getenv("TZ"));
        event.ID = id;
        event.addParam("TZ", "ABC-3");
        EXPECT_EQ(FC_OK, mManager.doHandle(&event));
    }
    EXPECT_STREQ("ABC-3", getenv("TZ"));
    expectLogged("SYS doHandle: setenv TZ=ABC-3");
}

} // namespace
