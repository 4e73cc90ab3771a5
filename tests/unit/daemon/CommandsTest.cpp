// The commands of the configuration manager: texts, orders, codes, events, files and rows.

#include "ManagerFixture.h"
#include "MessageEvent.h"
#include "base/LocalTime.h"

#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <thread>

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

std::string eventLine(const std::string& event, const std::string& name, const std::string& fcode)
{
    return "INFO sendEvent: notifying event=Configuration " + event + " cfgName=" + name +
           " fcode=" + fcode;
}

class CommandsTest : public ManagerFixture
{
protected:
    /// A running manager with these configurations saved; nothing captured.
    void startWith(const std::vector<std::string>& saved = {})
    {
        mManager.init();
        for (const std::string& name : saved)
            EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", name}}));
        logged();
    }

    Fcodes start(const std::string& row) { return run("START_CFG", {{"RowID", row}}); }
    Fcodes remove(const std::string& row) { return run("REMOVE_CFG", {{"RowID", row}}); }
    Fcodes rename(const std::string& name, const std::string& newName)
    {
        return run("Rename Configuration", {{"Name", name}, {"New Name", newName}});
    }
    Fcodes setAutoStart(const std::string& row, const std::string& value)
    {
        return run("SET_AUTOSTART_CFG", {{"RowID", row}, {"AutoStart", value}});
    }
    Fcodes deleteRow(int row) { return mManager.deleteRow("ConfigurationsTable", row); }

    /// As a peer may have written it.
    void change(const std::string& row, const char* property, const char* value)
    {
        mManager.initTextParam("CfgDataSet", "ConfigurationsTable", property, value, row);
    }
};

TEST_F(CommandsTest, SaveHasTheChannelsStoredAddsOrReplacesTheRowAndAnnouncesIt)
{
    startWith();
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "night"}, {"Description", "low gain"}}));
    EXPECT_EQ("/tmp/sockChan STORE_CHANNELS /data/cfg/night 10 3", mManager.requests.back());
    EXPECT_THAT(logged(),
                ElementsAre("INFO execute: command=SAVE_CFG",
                            "INFO addConfiguration: Generated filename=/data/cfg/night",
                            "INFO addConfiguration: Setting filename=/data/cfg/night to "
                            "table=ConfigurationsTable rowId=night",
                            "INFO addConfiguration: sending to/tmp/sockChan command" +
                                commandText("STORE_CHANNELS", {{"File", "/data/cfg/night"}}),
                            eventLine("Added", "night", "10000")));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("night", "low gain"), "starts "));
    EXPECT_THAT(readFile(kStoredCatalogue),
                AllOf(HasSubstr("low gain"), HasSubstr(text("night", "Time"))));

    writeFile("/data/cfg/night", "old content");
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "night"}, {"AutoStart", "true"}}));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("night"), "starts night"));
    EXPECT_EQ("channels", readFile("/data/cfg/night"));

    std::filesystem::remove("/data/cfg/night");
    EXPECT_EQ(FC_OK, run("SAVE_CFG", {{"Name", "night"}}));
    EXPECT_THAT(logged(),
                Contains("ERROR addConfiguration: Failed to remove file=/data/cfg/night errno=2"));
}

TEST_F(CommandsTest, FailedSaveLeavesARowWithoutATimeAndAnnouncesOnlyAMissingFile)
{
    startWith();
    mManager.channelsResult = FC_ACCESS_DENIED;
    EXPECT_EQ(FC_ACCESS_DENIED, run("SAVE_CFG", {{"Name", "a"}}));
    EXPECT_EQ("ERROR addConfiguration: requestCommand failed fcode=65540", logged().back());
    EXPECT_EQ("a=a|/data/cfg/a| |Available|10004|N/A", catalogue().front());

    mManager.channelsResult = FC_OK;
    mManager.writesFile = false;
    EXPECT_EQ(FC_BAD_VALUE, run("SAVE_CFG", {{"Name", "b"}}));
    const auto lines = logged();
    EXPECT_THAT(lines, Contains("ERROR cfgStored: Not found file=/data/cfg/b"));
    EXPECT_EQ(eventLine("Added", "b", "10020"), lines.back());
    for (const char* row : {"a", "b"})
        EXPECT_EQ("N/A", text(row, "Time"));
}

TEST_F(CommandsTest, SaveThatFailsOverAConfigurationPutsItBackWithTheCodeAndNoMoreLines)
{
    startWith({"a", "b"});
    setAutoStart("b", "true");
    change("a", "Description", "kept");
    logged();
    writeFile("/data/cfg/a", "worth keeping");
    mManager.channelsResult = FC_COMM_ERROR; // after a file was written
    EXPECT_EQ(FC_COMM_ERROR, run("SAVE_CFG", {{"Name", "a"}, {"AutoStart", "true"}}));
    EXPECT_EQ("ERROR addConfiguration: requestCommand failed fcode=65600", logged().back());
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("a", "kept", "10040"), rowLine("b"), "starts b"));
    EXPECT_EQ("worth keeping", readFile("/data/cfg/a"));
    EXPECT_THAT(readFile(kStoredCatalogue), HasSubstr("kept"));

    mManager.duringStore = [] { writeFile(kStoredCatalogue, "of a daemon that has taken over"); };
    EXPECT_EQ(FC_COMM_ERROR, run("SAVE_CFG", {{"Name", "a"}}));
    EXPECT_EQ("of a daemon that has taken over", readFile(kStoredCatalogue));
    EXPECT_THAT(logged().back(), HasSubstr("Not put back, others have changed file="));
}

TEST_F(CommandsTest, ADirectoryInThePlaceOfAConfigurationStaysWhatBecomesOfTheRow)
{
    startWith({"17", "a", "b"});
    for (const char* path : {"/data/cfg/17", "/data/cfg/a", "/data/cfg/b"}) {
        std::filesystem::remove(path);
        std::filesystem::create_directory(path);
    }
    mManager.channelsResult = FC_ACCESS_DENIED;
    mManager.writesFile = false;
    EXPECT_EQ(FC_OK, remove("a"));
    EXPECT_EQ(FC_OK, deleteRow(17));
    EXPECT_EQ(FC_ACCESS_DENIED, run("SAVE_CFG", {{"Name", "b"}}));
    for (const char* path : {"/data/cfg/17", "/data/cfg/a", "/data/cfg/b"})
        EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
    EXPECT_THAT(catalogue(), testing::SizeIs(2)); // b's row and the auto-start
}

TEST_F(CommandsTest, OneFileWithTwoNamesIsRenamedToOne)
{
    startWith({"a"});
    std::filesystem::create_hard_link("/data/cfg/a", "/data/cfg/z");
    EXPECT_EQ(FC_OK, rename("a", "z"));
    EXPECT_EQ(FC_OK, rename("z", "z"));
    EXPECT_FALSE(std::filesystem::exists("/data/cfg/a"));
    EXPECT_EQ("channels", readFile("/data/cfg/z"));
}

TEST_F(CommandsTest, TheAutoStartOfAFailedSaveIsNotTakenOverByALaterChangeOfItsName)
{
    startWith({"b", "c", "17"});
    writeFile("/tmp/in/a", "imported");
    std::filesystem::create_directory("/data/cfg/18"); // no file of the save either
    const std::tuple<std::string, std::function<Fcodes()>, std::string> table[] = {
        {"a",
         [&] {
             return run("SAVE_CFG", {{"Name", "a"}});
         },
         "b"},
        {"d", [&] { return remove("d"); }, "b"},
        {"18", [&] { return deleteRow(18); }, "b"},
        {"e", [&] { return rename("b", "e"); }, "e"},
        {"f",
         [&] {
             return run("SAVE_CFG", {{"Name", "f"}, {"AutoStart", "true"}});
         },
         "f"},
        {"g", [&] { return rename("c", "g"); }, "f"},
        {"h",
         [&] {
             remove("f");
             return run("SAVE_CFG", {{"Name", "h"}});
         },
         ""},
    };
    setAutoStart("b", "true");
    for (const auto& [name, later, expected] : table) {
        mManager.writesFile = false;
        mManager.channelsResult = FC_ACCESS_DENIED;
        for (int tries = 0; tries < 2; ++tries)
            run("SAVE_CFG", {{"Name", name}, {"AutoStart", "true"}});
        EXPECT_EQ("starts " + name, catalogue().back());
        mManager.writesFile = true;
        mManager.channelsResult = FC_OK;
        EXPECT_EQ(FC_OK, later()) << name;
        EXPECT_EQ("starts " + expected, catalogue().back()) << name;
    }
}

TEST_F(CommandsTest, ValueThatIsPendingForARowGoesWithTheRow)
{
    startWith({"12", "a", "b", "c"});
    for (const char* row : {"12", "a", "b", "c"})
        mManager.setTextParam("CfgDataSet", "ConfigurationsTable", "Description", "x",
                              std::string(row));
    deleteRow(12);
    remove("a");
    rename("b", "d");
    run("SAVE_CFG", {{"Name", "c"}});
    mManager.acceptChanges();
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("c"), rowLine("d", "x"), "starts "));
}

TEST_F(CommandsTest, OnlyFilesAreMovedAndNothingIntoADirectory)
{
    startWith({"a"});
    for (const char* directory : {"/tmp/directory", "/data/cfg/directory"})
        std::filesystem::create_directory(directory);
    mkfifo("/tmp/fifo", 0600);
    std::filesystem::create_symlink("/data/cfg/a", "/tmp/link");
    std::filesystem::create_symlink("/tmp/directory", "/data/cfg/link");
    writeFile("/tmp/in/directory", "x");
    writeFile("/tmp/in/link", "x");
    for (const char* source : {"/tmp/fifo", "/tmp/link", "/tmp/in/directory", "/tmp/in/link"}) {
        EXPECT_EQ(FC_UNAVAILABLE, run("Import Configuration", {{"File", source}})) << source;
        EXPECT_THAT(logged()[2], HasSubstr("command=mv -f ")) << source;
        EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(source))) << source;
    }
    EXPECT_EQ(FC_UNAVAILABLE, rename("a", "directory"));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("a"), "starts "));
}

TEST_F(CommandsTest, BadCommandsAreRefusedAndLoggedAndChangeNothing)
{
    startWith({"a"});
    const std::string stored = readFile(kStoredCatalogue);
    std::filesystem::create_directory("/tmp/directory");
    const std::string import = "Import Configuration", rename = "Rename Configuration";
    // The last is the log's last line; the command's text is put in for %.
    const std::tuple<std::string, Parameters, Fcodes, std::string> table[] = {
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
        {import, {{"File", "/tmp/a"}}, FC_UNAVAILABLE, "ERROR importConfiguration: Couldn't stat filename=/data/cfg/a"}, // no such file
        {import, {{"File", "/tmp/directory"}}, FC_UNAVAILABLE, "ERROR importConfiguration: Couldn't stat filename=/data/cfg/directory"},
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
    EXPECT_EQ(stored, readFile(kStoredCatalogue));
    EXPECT_EQ("channels", readFile("/data/cfg/a"));

    std::string response;
    EXPECT_EQ(FC_BODY_ERROR, mManager.execute("<Command >", response));
    EXPECT_THAT(logged(), ElementsAre("ERROR execute: Not found tags ID in:\n<Command >"));
    using Manager = ConfigurationManager; // an application of the daemon's own may call these
    const std::string error = ": Error in command:\n<Command >";
    for (const auto& [handler, line] : {
             std::pair(&Manager::addConfiguration, "addConfiguration" + error),
             {&Manager::importConfiguration, "importConfiguration" + error},
             {&Manager::renameConfiguration, "renameConfiguration" + error},
             {&Manager::removeConfiguration, "removeConfiguration" + error},
             {&Manager::setAutoStart, "setAutoStart" + error},
             {&Manager::startConfiguration, "startConfiguration: Not Found tag RowID"},
         }) {
        EXPECT_EQ(FC_BODY_ERROR, std::invoke(handler, mManager, "<Command >"));
        EXPECT_EQ("ERROR " + line, logged().front());
    }
    EXPECT_EQ(FC_OK, run("save_cfg", {{"Name", "b"}})); // not the manager's own: the worker's
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("a"), "starts "));
}

TEST_F(CommandsTest, StartLoadsTheFileOnceAndAnnouncesTheActivation)
{
    startWith({"3"});
    mManager.requests.clear();
    mManager.duringLoad = [&] { EXPECT_EQ("Inprogress", text("3", "State")); };
    EXPECT_EQ(FC_OK, start("3"));
    EXPECT_THAT(logged(),
                ElementsAre("INFO execute: command=START_CFG", "INFO startConfiguration: name=3",
                            "INFO startConfiguration: sending to/tmp/sockChan command" +
                                commandText("LOAD_CHANNELS", {{"File", "/data/cfg/3"}}),
                            eventLine("Activated", "3", "10000")));

    std::vector<Fcodes> meanwhile;
    mManager.duringLoad = [&] {
        std::thread([&] { meanwhile = {deleteRow(3), start("3")}; }).join();
    };
    EXPECT_EQ(FC_OK, start("3"));
    EXPECT_THAT(meanwhile, ElementsAre(FC_ACCESS_DENIED, FC_UNAVAILABLE));
    const char request[] = "/tmp/sockChan LOAD_CHANNELS /data/cfg/3 120 1";
    EXPECT_THAT(mManager.requests, ElementsAre(request, request));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("3"), "starts "));
}

TEST_F(CommandsTest, FailedStartRaisesAnErrorEventAndLeavesItsCodeInTheRow)
{
    startWith({"a"});
    mManager.channelsResult = FC_LOS;
    EXPECT_EQ(FC_LOS, start("a"));
    EXPECT_THAT(logged(),
                IsSupersetOf(Lines{"ERROR startConfiguration: requestCommand failed fcode=66560",
                                   eventLine("Error", "a", "10400")}));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("a", " ", "10400"), "starts "));

    EXPECT_EQ(FC_NO_SUCH_NAME, start("unknown"));
    EXPECT_EQ(eventLine("Error", "unknown", "10008"), logged().back());
    EXPECT_EQ(FC_BODY_ERROR, run("START_CFG", {}));
    EXPECT_THAT(logged(), ElementsAre("INFO execute: command=START_CFG",
                                      "ERROR startConfiguration: Not Found tag RowID",
                                      eventLine("Error", "", "10002")));

    mManager.channelsResult = FC_OK;
    mManager.duringLoad = [&] { mManager.deleteDataSet("CfgDataSet"); };
    EXPECT_EQ(FC_NO_SUCH_NAME, start("a"));
    EXPECT_THAT(logged(),
                IsSupersetOf(Lines{"ERROR cfgActivated: init failed State | Fcode fcode=65544",
                                   eventLine("Error", "a", "10008"),
                                   "ERROR startConfiguration: cfgActivated failed fcode=65544"}));
}

TEST_F(CommandsTest, StartOfARowThatIsNotAvailableIsRefusedAndMakesItAvailable)
{
    startWith({"a"});
    change("a", "State", "Inprogress");
    EXPECT_EQ(FC_UNAVAILABLE, start("a"));
    EXPECT_THAT(logged(),
                ElementsAre("INFO execute: command=START_CFG", "INFO startConfiguration: name=a",
                            "ERROR startConfiguration: Cfg row=a state is not AVAILABLE",
                            eventLine("Error", "a", "10100")));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("a", " ", "10100"), "starts "));
}

TEST_F(CommandsTest, WhatRunsIsKnownFromTheAnswerOfALoadUntilItsRowGoesOrALoadHasNone)
{
    startWith({"12", "a", "Default", "e"});
    EXPECT_EQ("Default, the fallback", running());
    const std::tuple<const char*, std::function<Fcodes()>, Fcodes, std::string> table[] = {
        // the result is that of a load too
        {"refused", [&] { return start("a"); }, FC_LOS, "Default, the fallback"},
        {"its name", [&] { return rename("Default", "d"); }, FC_OK, "Default, the fallback"},
        {"loaded", [&] { return start("12"); }, FC_OK, "12"},
        {"refused", [&] { return start("a"); }, FC_LOS, "12"},
        {"another renamed", [&] { return rename("a", "b"); }, FC_OK, "12"},
        {"row deleted", [&] { return deleteRow(12); }, FC_OK, ""},
        {"loaded", [&] { return start("b"); }, FC_OK, "b"},
        {"renamed", [&] { return rename("b", "c"); }, FC_OK, "c"},
        {"renamed over one", [&] { return rename("c", "d"); }, FC_OK, "d"},
        {"no answer", [&] { return start("e"); }, FC_COMM_ERROR, ""},
        {"loaded", [&] { return start("d"); }, FC_OK, "d"},
        {"removed", [&] { return remove("d"); }, FC_OK, ""},
    };
    for (const auto& [step, act, result, expected] : table) {
        mManager.channelsResult = result;
        EXPECT_EQ(result, act()) << step;
        EXPECT_EQ(expected, running()) << step;
    }

    mManager.duringLoad = [&] { rename("e", "f"); };
    EXPECT_EQ(FC_NO_SUCH_NAME, start("e"));
    EXPECT_EQ("", running());
    const std::string stored = readFile(kStoredCatalogue);
    EXPECT_EQ(FC_OK, start("f"));
    EXPECT_EQ(stored, readFile(kStoredCatalogue));

    mManager.removeInstance("CfgDataSet", "RunningConfiguration", std::string());
    mLog.clear();
    EXPECT_EQ(FC_OK, start("f"));
    EXPECT_EQ(FC_OK, remove("f"));
    EXPECT_THAT(mLog.entries(), Not(Contains(HasSubstr("RunningConfiguration"))));
}

TEST_F(CommandsTest, OnlyTheLiteralFalseClearsTheAutoStart)
{
    startWith();
    const std::pair<std::string, std::string> table[] = {
        {"true", "a"}, {"false", ""}, {"False", "a"}, {"false", ""}, {"false ", "a"}, {"0", "a"}};
    for (const auto& [value, expected] : table) {
        EXPECT_EQ(FC_OK, setAutoStart("a", value)); // the row need not exist
        EXPECT_THAT(catalogue(), ElementsAre("starts " + expected)) << value;
        EXPECT_THAT(logged(),
                    ElementsAre("INFO execute: command=SET_AUTOSTART_CFG",
                                "INFO setAutoStart: RowID=a", "INFO setAutoStart: state=" + value));
    }
    EXPECT_THAT(readFile(kStoredCatalogue), HasSubstr("\"a\""));
}

TEST_F(CommandsTest, ImportMovesTheFileAndStoresARowThatIsFoundByItsFile)
{
    startWith();
    writeFile("/tmp/in/it's/day ~1#", "imported");
    EXPECT_EQ(FC_OK, run("Import Configuration", {{"File", "/tmp/in/it's/day ~1#"},
                                                  {"Description", "from a stick"},
                                                  {"AutoStart", "true"}}));
    EXPECT_THAT(logged(),
                ElementsAre("INFO execute: command=Import Configuration",
                            "SYS importConfiguration file=/tmp/in/it's/day ~1# cfg=day ~1#",
                            "INFO importConfiguration: command=mv -f \"/tmp/in/it's/day ~1#\" "
                            "/data/cfg/day\\ ~1#",
                            "INFO importConfiguration: Added entry rowId=day ~1# for "
                            "file=/data/cfg/day ~1#"));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("day ~1#", "from a stick"), "starts day ~1#"));
    EXPECT_EQ("imported", readFile("/data/cfg/day ~1#"));
    EXPECT_THAT(readFile(kStoredCatalogue), HasSubstr("from a stick"));

    std::string found;
    EXPECT_EQ(FC_OK, mManager.getRowIdByFilename("/data/cfg/day ~1#", found));
    EXPECT_EQ("day ~1#", found);
    EXPECT_EQ(FC_UNAVAILABLE, mManager.getRowIdByFilename("/data/cfg/b", found));
    EXPECT_EQ("", found);
}

TEST_F(CommandsTest, RenameMovesFileRowAndAutoStartAndLosesNothingWhenTheFileIsGone)
{
    startWith({"a", "b", "c"});
    setAutoStart("a", "true");
    logged();
    writeFile("/data/cfg/a", "content of a");
    EXPECT_EQ(FC_OK, run("Rename Configuration",
                         {{"Name", "a"}, {"New Name", "b"}, {"Description", "moved"}}));
    EXPECT_THAT(logged(),
                ElementsAre("INFO execute: command=Rename Configuration",
                            "INFO renameConfiguration: oldname=a new name=b",
                            "INFO renameConfiguration: command=mv -f \"/data/cfg/a\" "
                            "\"/data/cfg/b\"",
                            "INFO renameConfiguration: Added entry rowId=b for file=/data/cfg/b"));
    const auto expected = ElementsAre(rowLine("b", "moved"), rowLine("c"), "starts b");
    EXPECT_THAT(catalogue(), expected);
    EXPECT_EQ("content of a", readFile("/data/cfg/b"));

    EXPECT_EQ(FC_OK, rename("b", "b"));
    EXPECT_THAT(catalogue(), expected);
    EXPECT_EQ("content of a", readFile("/data/cfg/b"));

    std::filesystem::remove("/data/cfg/b");
    EXPECT_EQ(FC_UNAVAILABLE, rename("b", "c"));
    EXPECT_EQ("ERROR renameConfiguration: Couldn't stat filename=/data/cfg/c", logged().back());
    EXPECT_THAT(catalogue(), expected);
    EXPECT_EQ("channels", readFile("/data/cfg/c"));
}

TEST_F(CommandsTest, RemoveDeletesFileRowAndAutoStartWithoutAnEventAndDeleteRowWithOne)
{
    startWith({"12", "a", "b"});
    setAutoStart("a", "true");
    logged();
    EXPECT_EQ(FC_OK, remove("a"));
    EXPECT_THAT(logged(), ElementsAre("INFO execute: command=REMOVE_CFG"));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("12"), rowLine("b"), "starts "));
    EXPECT_EQ("", readFile("/data/cfg/a"));
    EXPECT_THAT(readFile(kStoredCatalogue), Not(HasSubstr("/data/cfg/a")));

    std::filesystem::remove("/data/cfg/b");
    EXPECT_EQ(FC_OK, remove("b"));
    EXPECT_EQ("ERROR removeConfiguration: Failed to remove file=/data/cfg/b errno=2",
              logged().back());

    EXPECT_EQ(FC_OK, deleteRow(12));
    EXPECT_THAT(logged(), ElementsAre("INFO deleteRow: CFG removed row=12 fcode=65536",
                                      eventLine("Removed", "12", "10000")));
    EXPECT_THAT(catalogue(), ElementsAre("starts "));
    EXPECT_THAT(readFile(kStoredCatalogue), Not(HasSubstr("/data/cfg/12")));
    EXPECT_EQ("", readFile("/data/cfg/12"));
    EXPECT_EQ(FC_BAD_VALUE | FC_NO_SUCH_NAME, deleteRow(12));
    EXPECT_EQ(FC_OK, mManager.deleteRow("Other", 1));
    EXPECT_THAT(logged(), ElementsAre("ERROR deleteRow: Not Found File Name in "
                                      "table=ConfigurationsTable row=12 fcode=65544"));
}

TEST_F(CommandsTest, FilesOfAnyNameAreRemovedAndRenamedButNoneOutsideTheDirectory)
{
    for (const char* name : {"/data/cfg/  ", "/data/cfg/a\nb"})
        writeFile(name, "");
    startWith({"a", "7"});
    EXPECT_EQ(FC_OK, rename("  ", "sane"));
    EXPECT_EQ(FC_OK, remove("a\nb"));
    EXPECT_FALSE(std::filesystem::exists("/data/cfg/a\nb"));

    writeFile("/data/precious", "kept");
    for (const char* row : {"a", "7"})
        change(row, "File Name", "/data/precious");
    EXPECT_EQ(FC_UNAVAILABLE, rename("a", "b"));
    EXPECT_EQ(FC_UNAVAILABLE, remove("a"));
    EXPECT_EQ(FC_OK, deleteRow(7));
    EXPECT_THAT(catalogue(), ElementsAre(rowLine("sane"), "starts "));
    const auto lines = logged();
    for (const std::string operation : {"removeConfiguration", "deleteRow"})
        EXPECT_THAT(lines, Contains("ERROR " + operation +
                                    ": Failed to remove file=/data/precious errno=1"));
    EXPECT_EQ("kept", readFile("/data/precious"));
}

TEST_F(CommandsTest, RenameAndSaveReportPropertiesThatTheCatalogueLacks)
{
    startWith({"a"});
    writeFile("/tmp/lacking.json", R"({"dataset":"CfgDataSet","components":{
        "AutoStart":{"instance":{"Name":""},"properties":{"Name":{"type":"string"}}},
        "ConfigurationsTable":{"properties":{"File Name":{"type":"string","default":""}},
            "instances":{"a":{"File Name":"/data/cfg/a"}}}}})");
    ASSERT_EQ(FC_OK, mManager.loadDataSet("/tmp/lacking.json"));
    EXPECT_EQ(FC_NO_SUCH_NAME, rename("a", "b"));
    EXPECT_THAT(logged(),
                Contains("ERROR importConfiguration: Couldn't replace name=a with new=b"));
    EXPECT_THAT(catalogue(), ElementsAre(testing::StartsWith("b="), "starts "));
    EXPECT_EQ(FC_NO_SUCH_NAME, start("b"));
    EXPECT_THAT(logged(), Contains("ERROR startConfiguration: Not found State field in Cfg row=b"));

    EXPECT_EQ(FC_NO_SUCH_NAME, run("SAVE_CFG", {{"Name", "c"}}));
    EXPECT_THAT(logged(), Contains("ERROR addConfiguration: Failed accept changes fcode=65544"));

    writeFile("/tmp/lacking.json", R"({"dataset":"CfgDataSet","components":{
        "AutoStart":{"instance":{"Name":""},"properties":{"Name":{"type":"string"}}},
        "ConfigurationsTable":{"properties":{"State":{"type":"string","default":""}},
            "instances":{"a":{"State":"Available"},"b":{"State":"Available"},"7":{}}}}})");
    ASSERT_EQ(FC_OK, mManager.loadDataSet("/tmp/lacking.json"));
    const std::string lacks = " in table=ConfigurationsTable row=";
    EXPECT_EQ(FC_NO_SUCH_NAME, start("a"));
    EXPECT_EQ(FC_NO_SUCH_NAME, run("SAVE_CFG", {{"Name", "a"}}));
    EXPECT_EQ(FC_NO_SUCH_NAME, remove("b"));
    EXPECT_EQ(FC_BAD_VALUE, deleteRow(7));
    EXPECT_THAT(logged(),
                IsSupersetOf(Lines{
                    "ERROR startConfiguration: Not Found Filename" + lacks + "a fcode=65544",
                    "ERROR addConfiguration: Not Found File Name" + lacks + "a fcode=65544",
                    "ERROR addConfiguration: Failed Setting filename=/data/cfg/a to "
                    "table=ConfigurationsTable rowId=a fcode=65544",
                    "ERROR removeConfiguration: Not Found File Name" + lacks + "b fcode=65544",
                    "ERROR deleteRow: Not Found File Name" + lacks + "7 fcode=65544"}));

    writeFile("/tmp/lacking.json", R"({"dataset":"CfgDataSet","components":{}})");
    ASSERT_EQ(FC_OK, mManager.loadDataSet("/tmp/lacking.json"));
    EXPECT_EQ(FC_NO_SUCH_NAME, run("SAVE_CFG", {{"Name", "a"}}));
    EXPECT_EQ("ERROR addConfiguration: Couldn't add to dataset=CfgDataSet comp=ConfigurationsTable "
              "new rowId=a",
              logged().back());
}

TEST_F(CommandsTest, OnlyDateAndTimeUpdatedSetsTheZone)
{
    startWith();
    MessageEvent event;
    event.addParam("TZ", "ABC-3");
    for (const char* id : {"Channels Loaded", "Date&Time Updated"}) {
        event.ID = id;
        EXPECT_EQ(FC_OK, mManager.doHandle(&event));
    }
    EXPECT_THAT(logged(), ElementsAre("INFO doHandle: arrived event=Channels Loaded",
                                      "INFO doHandle: arrived event=Date&Time Updated",
                                      "SYS doHandle: setenv TZ=ABC-3"));
    EXPECT_STREQ("ABC-3", getenv("TZ"));
}

TEST_F(CommandsTest, AZoneThatNamesNoZoneFileIsRefusedWithoutOpeningIt)
{
    std::filesystem::create_directories("/tmp/zones/Area");
    writeFile("/tmp/zones/Area/Here", "");
    std::filesystem::create_symlink("/tmp/zones/Area/Here", "/tmp/link");
    mkfifo("/tmp/fifo", 0666); // would hold whoever opens it
    setenv("TZDIR", "/tmp/zones", 1);
    startWith();
    const std::string longest(255, 'x'), here = "/tmp/zones/Area/Here";
    const std::pair<std::string, std::string> zones[] = {
        {":/tmp/fifo", ""},         {"../fifo", ""},
        {"/dev/null", ""},          {"Area", ""},
        {"/tmp/../etc/..", ""},     {longest + 'x', ""},
        {longest, longest},         {":Area/Here", ":Area/Here"},
        {":" + here, ":" + here},   {"/tmp/link", here},
        {"Area/../../link", here},  {"/tmp/none", "UTC0"},
        {"/etc/none", "/etc/none"}, {":", ":"},
    };
    for (const auto& [zone, expected] : zones) {
        setTimeZone("ABC-3");
        MessageEvent event;
        event.ID = "Date&Time Updated";
        event.addParam("TZ", zone);
        EXPECT_EQ(FC_OK, mManager.doHandle(&event));
        Lines lines{"INFO doHandle: arrived event=" + event.ID, "SYS doHandle: setenv TZ=" + zone};
        if (expected.empty())
            lines.push_back("ERROR doHandle: Refused TZ, too long or no zone file bytes=" +
                            std::to_string(zone.size()));
        EXPECT_EQ(lines, logged());
        EXPECT_EQ(expected.empty() ? "ABC-3" : expected, getenv("TZ"));
    }
}

} // namespace
