// What start-up makes of each record that an earlier run has left: the old whole or the new whole.

#include "ChangeSettlement.h"
#include "CfgFiles.h"
#include "ChangeJournal.h"
#include "ManagerFixture.h"

#include <filesystem>

namespace
{

using Kind = ChangeRecord::Kind;
using testing::HasSubstr;

class ChangeSettlementTest : public ManagerFixture
{
protected:
    ChangeSettlementTest() { mManager.init(); }

    /// A row as it was before a change, and the file that the journal has kept of it.
    CatalogueRow oldRow(const std::string& name, const std::string& state = "Available")
    {
        return {{"Name", name},   {"File Name", "/data/cfg/" + name}, {"Description", "old"},
                {"State", state}, {"Fcode", std::to_string(FC_OK)},   {"Time", "N/A"}};
    }

    static ChangeRecord recordOf(Kind kind, const std::string& name, const std::string& kept = "")
    {
        ChangeRecord record;
        record.kind = kind;
        record.name = name;
        record.file = "/data/cfg/" + name;
        record.kept = kept;
        return record;
    }

    void place(const CatalogueRow& row) { mTable.writeRow(row.at("Name"), row); }

    void settle(const std::vector<ChangeRecord>& records,
                CatalogueSource source = CatalogueSource::STORED)
    {
        ChangeSettlement(mTable, source).run(records);
    }

    /// Description, state and file of the configuration; "gone" without a row.
    std::string found(const std::string& name)
    {
        const std::string file = readFile("/data/cfg/" + name);
        return !mTable.has(name)
                   ? "gone" + file
                   : text(name, "Description") + ' ' + text(name, "State") + ' ' + file;
    }

    ConfigurationsTable mTable{mManager};
};

TEST_F(ChangeSettlementTest, EachRecordOfASaveOrImportEndsInTheOldOrInTheNew)
{
    const auto newRow = [](CatalogueRow row) {
        row["Description"] = "new";
        return row;
    };
    struct Case {
        const char* what;
        std::function<void(ChangeRecord&)>
            change;       // of a record with the row before and the kept file
        const char* row;  // the description that is stored; "": none
        const char* file; // at the path; "": none
        const char* found;
    };
    const auto answered = [](ChangeRecord& record) { record.answered = true; };
    const auto import = [](ChangeRecord& record) { record.kind = Kind::IMPORT; };
    const Case cases[] = {
        {"answered, but the file has gone", answered, "new", "", "gone"},
        {"answered, nothing stored", answered, "old", "saved", "new Available saved"},
        {"answered and stored", answered, "new", "saved", "new Available saved"},
        {"answered, and changed since", answered, "changed", "saved", "changed Available saved"},
        {"cut off", [](ChangeRecord&) {}, "new", "half", "old Available kept"},
        {"cut off while it was started",
         [](ChangeRecord& record) { (*record.before)["State"] = "Inprogress"; }, "new", "half",
         "old Available kept"},
        {"cut off, and removed since", [](ChangeRecord&) {}, "", "half", "gonehalf"},
        {"import cut off before the move", import, "old", "", "old Available kept"},
        {"import that has arrived",
         [](ChangeRecord& record) {
             record.kind = Kind::IMPORT;
             record.moved = *stampOf("/data/cfg/b");
             record.autoStartAfter = "b";
         },
         "old", "imported", "new Available imported"},
        {"import that has arrived while its source still grew",
         [](ChangeRecord& record) {
             record.kind = Kind::IMPORT;
             record.file = "/tmp/moved";
             record.moved = *stampOf("/data/cfg/b");
             --record.moved.size;
         },
         "old", "imported", "new Available imported"},
        {"import that has ended",
         [](ChangeRecord& record) {
             record.kind = Kind::IMPORT;
             std::filesystem::remove(record.kept);
         },
         "new", "imported", "new Available imported"},
        {"removal that the disk refused", [](ChangeRecord& record) { record.kind = Kind::REMOVE; },
         "", "refused", "old Available refused"},
        {"copy of a new file cut off",
         [](ChangeRecord& record) {
             record = recordOf(Kind::IMPORT, "b");
             record.file = "/tmp/source";
             record.moved = *stampOf("/tmp/source");
             record.boot = kNoOneReplaced;
         },
         "", "sour", "gone"},
    };
    writeFile("/tmp/source", "source");
    for (const Case& c : cases) {
        mTable.remove("b");
        std::filesystem::remove("/data/cfg/b");
        const CatalogueRow before = oldRow("b");
        if (*c.row != 0) {
            place(before);
            mTable.writeText("b", "Description", c.row);
        }
        if (*c.file != 0)
            writeFile("/data/cfg/b", c.file);
        ChangeRecord record = recordOf(Kind::SAVE, "b", "/data/kept");
        record.before = before;
        record.after = newRow(before);
        writeFile(record.kept, "kept");
        c.change(record);
        settle({record});
        EXPECT_EQ(c.found, found("b")) << c.what;
        settle({record}); // twice changes nothing
        EXPECT_EQ(c.found, found("b")) << c.what;
    }
    EXPECT_EQ("starts b", catalogue().back());
}

TEST_F(ChangeSettlementTest, WhatStandsInTheWayOfAFileIsPutAsideAndAFileWithoutAPlaceIsSpared)
{
    ChangeJournal& journal = ChangeJournal::ofProcess();
    const auto cutOffSave = [&](const std::string& name) {
        writeFile("/data/cfg/" + name, name);
        place(oldRow(name));
        ChangeRecord save = recordOf(Kind::SAVE, name);
        save.before = oldRow(name);
        save = journal.find(journal.begin(save, save.file).number);
        std::filesystem::remove(save.file);
        return save;
    };
    for (const char* obstacle : {"/data/cfg_obstacle", "/data/cfg_obstacle.2"}) {
        const ChangeRecord save = cutOffSave("b");
        std::filesystem::create_directories("/data/cfg/b/full");
        settle({save});
        EXPECT_EQ("old Available b", found("b"));
        EXPECT_TRUE(std::filesystem::is_directory(std::string(obstacle) + "/full"));
    }

    ChangeRecord save = cutOffSave("c");
    save.file = "/data/cfg/none/c";
    mLog.clear();
    settle({save});
    const std::string spared = "/data/.cfg_changes/spared." + std::to_string(save.number);
    EXPECT_THAT(
        logged().front(),
        "ERROR settleChanges: Couldn't put back file=/data/cfg/none/c errno=2, kept as file=" +
            spared);
    EXPECT_EQ("c", readFile(spared));
    EXPECT_EQ("", journal.spare(save.number + 100));
}

TEST_F(ChangeSettlementTest, LaterRecordsSayWhereToAConfigurationHasGone)
{
    for (const char* name : {"a", "b"})
        place(oldRow(name));
    for (const char* file : {"/data/cfg/b", "/data/cfg/c"})
        writeFile(file, "x");
    mTable.writeAutoStart("b");
    ChangeRecord save = recordOf(Kind::SAVE, "b", "/data/kept");
    save.number = 1;
    save.before = oldRow("b");
    save.autoStartBefore = "a"; // has been renamed since
    save.autoStartAfter = "b";
    ChangeRecord rename = recordOf(Kind::RENAME, "a");
    rename.number = 2;
    rename.newName = "c";
    rename.moved = *stampOf("/data/cfg/c");
    rename.after = CatalogueRow{{"Description", "renamed"}};
    settle({rename});
    settle({save, rename});
    EXPECT_EQ("starts c", catalogue().back());
    EXPECT_EQ("gone renamed Available x", found("a") + ' ' + found("c"));

    // A row without a file is there to stay only when a later change brings one.
    for (const bool isImported : {false, true}) {
        ChangeRecord unstored = recordOf(Kind::UNSTORED, "d");
        unstored.number = 1;
        unstored.after = oldRow("d");
        ChangeRecord import = recordOf(Kind::IMPORT, isImported ? "d" : "e");
        import.number = 2;
        import.after = CatalogueRow{{ "Description", "" }};
        settle({unstored, import});
        EXPECT_EQ(isImported ? "old Available " : "gone", found("d"));
    }
}

TEST_F(ChangeSettlementTest, WithoutTheStoredCatalogueOnlyTheFileComesBack)
{
    for (const auto& [source, expected] :
         {std::pair(CatalogueSource::FACTORY, "gonekept"), {CatalogueSource::WIPED, "gone"}})
        for (const Kind kind : {Kind::SAVE, Kind::IMPORT}) {
            std::filesystem::remove("/data/cfg/b");
            writeFile("/data/kept", "kept");
            mLog.clear();
            settle({recordOf(kind, "b", "/data/kept")}, source);
            EXPECT_EQ(expected, found("b"));
            EXPECT_THAT(logged().front(),
                        HasSubstr("settleChanges: Dropped record of rowId=b file="));
        }
}

} // namespace
