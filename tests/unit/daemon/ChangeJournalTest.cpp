// The records of changes under way: their text, and what becomes of them on a full disk.

#include "ChangeJournal.h"
#include "CfgPaths.h"
#include "Device.h"
#include "Refusal.h"
#include "SavedCatalogue.h"
#include "ScriptedPeer.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <thread>

namespace
{

TEST(ChangeJournalTest, RecordsOfAnyBytesAreReadBackAndNothingIsReadOfACutText)
{
    ChangeRecord record;
    record.kind = ChangeRecord::Kind::RENAME;
    record.number = 7;
    record.name = "caf\xe9\n3:x";
    record.newName = std::string("\0 \"", 3);
    record.moved = {5, -1};
    record.before = CatalogueRow{{"Description", std::string(70000, '\xff')}, {"", "1:2"}};
    const std::string half = journalHalf(9, toText({record, ChangeRecord{}}));

    std::uint64_t write = 0;
    const std::string padded = half + std::string(100, '\0');
    const auto text = readJournalHalf(padded, write);
    ASSERT_TRUE(text);
    EXPECT_EQ(9U, write);
    const auto read = readChangeRecords(*text);
    ASSERT_TRUE(read && read->size() == 2);
    EXPECT_EQ(toText({record, ChangeRecord{}}), toText(*read));
    EXPECT_TRUE(record.before == read->front().before);
    EXPECT_FALSE(read->front().after);

    for (const std::size_t length : {half.size() - 1, half.size() / 2, std::size_t{20}})
        EXPECT_FALSE(readJournalHalf(half.substr(0, length), write)) << length;
    std::string changed = half;
    changed.back() ^= 1;
    EXPECT_FALSE(readJournalHalf(changed, write));
    EXPECT_FALSE(readChangeRecords(text->substr(0, text->size() - 1)));
    EXPECT_FALSE(readChangeRecords("1:9\n" + std::string(text->substr(4)))); // no such kind
}

TEST(ChangeJournalTest, WhatWasAcknowledgedOnAFullDiskIsThereAtTheNextStart)
{
    ASSERT_EQ(0, mount("data", "/data", "tmpfs", 0, "size=2m"));
    Device device;
    placeCatalogue({"a", "b", "c", "d"}, "a");
    device.start("ChanManager", {"-v", "5"});
    device.start("CfgManager");
    RequestingHolder client;
    const auto run = [&client](const char* id, const Parameters& parameters) {
        EXPECT_EQ(FC_OK, client.command(kCfgSocket, id, parameters)) << id;
    };
    writeFile("/data/filler", std::string(4 << 20, 'x'));
    run("SET_AUTOSTART_CFG", {{"RowID", "d"}, {"AutoStart", "true"}});
    std::filesystem::remove("/data/filler");
    EXPECT_TRUE(device.log().waitFor("storeCatalogue: Stored again file="));
    EXPECT_THAT(readFile(kStoredCatalogue), testing::HasSubstr("\"Name\" : \"d\""));
    writeFile("/tmp/large", std::string(4 << 20, 'x'));
    EXPECT_NE(FC_OK, client.command(kCfgSocket, "Import Configuration", {{"File", "/tmp/large"}}));
    EXPECT_FALSE(std::filesystem::exists("/data/cfg/large")); // nothing of the copy is left
    writeFile("/data/filler", std::string(4 << 20, 'x'));
    run("SET_AUTOSTART_CFG", {{"RowID", "b"}, {"AutoStart", "true"}});
    run("REMOVE_CFG", {{"RowID", "c"}});
    run("Rename Configuration", {{"Name", "d"}, {"New Name", "e"}, {"Description", "moved"}});
    EXPECT_TRUE(device.log().waitFor("storeDataSet: Couldn't write file=/data/cfg/cfg_stored_set"));
    device.cut("CfgManager");
    writeFile("/data/filler", std::string(4 << 20, 'x')); // with what was in reserve
    device.start("CfgManager");
    EXPECT_TRUE(device.log().waitFor("init: Couldn't reserve space"));
    run("Rename Configuration", {{"Name", "e"}, {"New Name", "f"}});
    for (const char* row : {"a", "f", "b"})
        run("SET_AUTOSTART_CFG", {{"RowID", row}, {"AutoStart", "true"}});
    device.cut("CfgManager");
    std::filesystem::remove("/data/filler");
    for (int boot = 0; boot < 3; ++boot) {
        device.start("CfgManager");
        client.command(kCfgSocket, "START_CFG", {{"RowID", "b"}}); // answered after the start
        device.cut("CfgManager");
    }
    const std::string stored = readFile(kStoredCatalogue);
    using testing::HasSubstr;
    EXPECT_THAT(stored, testing::AllOf(HasSubstr("\"Name\" : \"b\""), HasSubstr("moved"),
                                       HasSubstr("/data/cfg/f"), HasSubstr("kept")));
    for (const char* gone : {"/data/cfg/c", "/data/cfg/d", "/data/cfg/e"})
        EXPECT_THAT(stored, testing::Not(HasSubstr(gone)));
    EXPECT_FALSE(std::filesystem::exists(kChangesBeside));
}

TEST(ChangeJournalTest, AFileWithoutARecordIsRemovedOnlyBesideAJournalThatCanBeRead)
{
    const std::string place = kChangesBeside;
    const std::string whole = journalHalf(4, toText({}));
    for (const bool isWhole : {true, false}) {
        writeFile(place + "/journal", isWhole ? whole : "damaged");
        writeFile(place + "/kept.9", "the last of its links");
        std::filesystem::permissions(place, std::filesystem::perms::owner_all);
        EXPECT_TRUE(ChangeJournal::ofProcess().open().empty());
        EXPECT_EQ(!isWhole, std::filesystem::exists(place + "/kept.9"));
    }
    std::filesystem::resize_file(place + "/journal", std::uintmax_t{1} << 40); // a damaged size
    EXPECT_TRUE(ChangeJournal::ofProcess().open().empty());
    EXPECT_EQ(10U, ChangeJournal::ofProcess().begin({}, "").number); // no number is given twice
}

TEST(ChangeJournalTest, ACopyThatWasCutOffBeforeItsRecordDoesNotKeepTheDirectory)
{
    writeFile(std::string(kChangesBeside) + "/kept.1.new", "the first par");
    std::filesystem::permissions(kChangesBeside, std::filesystem::perms::owner_all);
    ChangeJournal::ofProcess().open();
    ChangeJournal::ofProcess().stored();
    EXPECT_FALSE(std::filesystem::exists(kChangesBeside));
}

TEST(ChangeJournalTest, OfANewSaveThatThePowerCutOffNothingIsLeft)
{
    Device device;
    for (const char* boot : {"earlier", ""}) { // it had failed: a late file stays
        placeCatalogue({"a", "b"});
        ChangeRecord save;
        save.name = "b";
        save.boot = boot;
        writeFile(std::string(kChangesBeside) + "/journal", journalHalf(1, toText({save})));
        std::filesystem::permissions(kChangesBeside, std::filesystem::perms::owner_all);
        device.start("CfgManager", {"-v", "5"});
        device.cut("CfgManager");
        const std::string stored = readFile(kStoredCatalogue);
        EXPECT_EQ(*boot == 0, std::filesystem::exists("/data/cfg/b"));
        EXPECT_EQ(*boot == 0, stored.find("/data/cfg/b") != std::string::npos);
        EXPECT_NE(std::string::npos, stored.find("/data/cfg/a"));
    }
}

TEST(ChangeJournalTest, ACutOffCopyOrADirectoryIsNotTakenForTheFileOfAnEarlierSave)
{
    Device device;
    for (const bool isAnswered : {true, false})
        for (const bool isImported : {true, false}) {
            placeCatalogue({"a", "n", "z"}, isAnswered ? "a" : "n");
            writeFile("/tmp/in/n", "the whole of it");
            std::filesystem::remove_all("/data/cfg/n");
            std::vector<ChangeRecord> records(1);
            ChangeRecord& save = records[0];
            save.name = "n";
            save.answered = isAnswered;
            save.autoStartBefore = "a";
            save.autoStartAfter = "n";
            if (isImported) {
                writeFile("/data/cfg/n", "the");
                ChangeRecord import = save;
                import.kind = ChangeRecord::Kind::IMPORT;
                import.number = 1;
                import.file = "/tmp/in/n";
                import.boot = kNoOneReplaced;
                import.moved = *stampOf(import.file);
                import.before = CatalogueRow{{ "File Name", "/data/cfg/n" }};
                import.after = CatalogueRow{{ "Description", "" }};
                records.push_back(import);
            } else if (!isAnswered) {
                std::filesystem::create_directory("/data/cfg/n");
            }
            writeFile(std::string(kChangesBeside) + "/journal", journalHalf(1, toText(records)));
            std::filesystem::permissions(kChangesBeside, std::filesystem::perms::owner_all);
            device.start("CfgManager", {"-v", "5"});
            device.cut("CfgManager");
            EXPECT_FALSE(std::filesystem::is_regular_file("/data/cfg/n"));
            EXPECT_EQ("the whole of it", readFile("/tmp/in/n"));
            std::filesystem::remove_all("/data/cfg/n");
            const Catalogue found = storedCatalogue();
            EXPECT_EQ("a", found.autoStart);
            EXPECT_THAT(found.rows, testing::SizeIs(2)) << describe(found, {});
            EXPECT_EQ("kept", found.rows.at("a").first);
        }
}

TEST(ChangeJournalTest, OfARemovalThatTheDiskRefusesTheOldWholeIsLeft)
{
    ASSERT_EQ(0, mount("data", "/data", "tmpfs", 0, nullptr));
    Device device;
    Channels channels;
    channels.mode = Channels::Mode::REFUSE_AND_WRITE;
    RequestingHolder client;
    const char file[] = "/data/cfg/z";
    for (const std::string cause : {"mounted", "saved later", "imported later", "read-only"}) {
        placeCatalogue({"a", "z"}, "z");
        writeFile("/tmp/in/z", "imported");
        Catalogue expected = storedCatalogue();
        if (cause == "read-only")
            ASSERT_EQ(0, mount(nullptr, "/data", nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
        else
            ASSERT_EQ(0, mount(file, file, nullptr, MS_BIND, nullptr));
        device.start("CfgManager", {"-v", "5"});
        EXPECT_EQ(FC_UNAVAILABLE, client.command(kCfgSocket, "REMOVE_CFG", {{"RowID", "z"}}));
        if (cause == "read-only") {
            ASSERT_EQ(0, mount(nullptr, "/data", nullptr, MS_REMOUNT, nullptr));
            client.command(kCfgSocket, "SET_AUTOSTART_CFG",
                           {{"RowID", "a"}, {"AutoStart", "true"}});
            expected.autoStart = "a";
        } else {
            umount(file);
            EXPECT_TRUE(storedCatalogue().rows.at("z").first.empty());
        }
        if (cause == "saved later") {
            EXPECT_EQ(FC_ACCESS_DENIED, client.command(kCfgSocket, "SAVE_CFG", {{"Name", "z"}}));
            EXPECT_EQ(expected, storedCatalogue()) << describe(storedCatalogue(), expected);
        } else if (cause == "imported later") {
            client.command(kCfgSocket, "Import Configuration", {{"File", "/tmp/in/z"}});
            expected.rows["z"] = {" ", "imported"};
            expected.autoStart = "";
        }
        device.cut("CfgManager");
        startThrice(device);
        const Catalogue found = storedCatalogue();
        EXPECT_EQ(expected, found) << cause << '\n' << describe(found, expected);
    }
}

TEST(ChangeJournalTest, WhatWasRefusedOnAReadOnlyDiskIsNotStoredOnceItTakesAStore)
{
    ASSERT_EQ(0, mount("data", "/data", "tmpfs", 0, nullptr));
    Device device;
    Channels channels;
    channels.mode = Channels::Mode::REFUSE;
    RequestingHolder client;
    for (const bool isEdited : {false, true}) {
        placeCatalogue({"a", "b"}, "a");
        Catalogue expected = storedCatalogue();
        ASSERT_EQ(0, mount(nullptr, "/data", nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
        device.start("CfgManager");
        const Parameters save = {{"Name", "b"}, {"Description", "new"}, {"AutoStart", "true"}};
        EXPECT_EQ(FC_ACCESS_DENIED, client.command(kCfgSocket, "SAVE_CFG", save));
        ASSERT_EQ(0, mount(nullptr, "/data", nullptr, MS_REMOUNT, nullptr));
        if (isEdited) { // by somebody else
            placeCatalogue({"a", "b"}, "b");
            expected.autoStart = "b";
        }
        EXPECT_TRUE(device.log().waitFor(
            isEdited ? "storeCatalogue: Not stored again, others have changed file="
                     : "storeCatalogue: Stored again file="));
        EXPECT_EQ(expected, storedCatalogue()) << describe(storedCatalogue(), expected);
        device.cut("CfgManager");
        startThrice(device);
        EXPECT_EQ(expected, storedCatalogue()) << describe(storedCatalogue(), expected);
    }
}

TEST(ChangeJournalTest, WhatIsKeptOfASaveThatWasCutOffSurvivesWhatOthersDoBeforeTheStart)
{
    Device device;
    const std::string kept = std::string(kChangesBeside) + "/kept.3";
    for (const std::string others : {"mounted", "have opened it to all", "have taken its row"}) {
        placeCatalogue({"a", "b"}, "b");
        ChangeRecord save;
        save.name = others == "have taken its row" ? "c" : "b";
        save.number = 3;
        save.file = "/data/cfg/" + save.name;
        save.kept = kept;
        save.before = CatalogueRow{{"File Name", save.file}, {"Description", "old"}};
        writeFile(std::string(kChangesBeside) + "/journal", journalHalf(1, toText({save})));
        writeFile(kept, "old");
        std::filesystem::remove(save.file);
        using std::filesystem::perms;
        const bool isOpen = others == "have opened it to all";
        std::filesystem::permissions(kChangesBeside, isOpen ? perms::owner_all | perms::group_exec
                                                            : perms::owner_all);
        if (others == "mounted") {
            ASSERT_EQ(0, mount(kCfgDir, kCfgDir, nullptr, MS_BIND, nullptr));
        }
        device.start("CfgManager");
        if (others == "mounted") {
            device.cut("CfgManager");
            umount(kCfgDir);
            const Catalogue found = storedCatalogue();
            EXPECT_EQ((std::pair<std::string, std::string>("old", "old")), found.rows.at("b"));
            EXPECT_EQ("b", found.autoStart);
        } else if (isOpen) {
            EXPECT_TRUE(device.log().waitFor("in dir=/data/.cfg_changes, which is open to others"));
            EXPECT_EQ("old", readFile(kept));
        } else {
            const std::string spared = std::string(kChangesBeside) + "/spared.3";
            EXPECT_TRUE(device.log().waitFor("Has no row rowId=c, kept as file=" + spared));
            EXPECT_EQ("old", readFile(spared));
        }
    }
}

TEST(ChangeJournalTest, AChangeThatHasEndedIsSettledNeitherAloneNorUnderALaterOne)
{
    writeFile("/data/cfg/b", "old");
    for (const bool isStored : {true, false}) {
        ChangeJournal& journal = ChangeJournal::ofProcess();
        ChangeRecord save;
        save.name = "b";
        save.before = CatalogueRow{};
        journal.begin(save, "/data/cfg/b"); // it failed, and so did its put-back
        ChangeRecord rename;
        rename.kind = ChangeRecord::Kind::RENAME;
        rename.name = "c";
        rename.newName = "b";
        rename.after = CatalogueRow{{"Description", "c's"}};
        const auto number = journal.begin(rename).number;
        if (isStored)
            journal.end(number);
        else
            journal.endUnstored(number, {{"b", CatalogueRow{}}, {"c", std::nullopt}}, "");
        for (const ChangeRecord& left : journal.open())
            EXPECT_EQ(ChangeRecord::Kind::UNSTORED, left.kind);
        journal.stored();
    }
}

TEST(ChangeJournalTest, WhatCannotBeRecordedIsSaidSoAndTakesNothingAway)
{
    using Kind = ChangeRecord::Kind;
    const std::tuple<long, int, Kind, bool, bool> cases[] = {
        // whether it fails, and keeps the old
        {SYS_mkdir, ENOSPC, Kind::SAVE, true, false},
        {SYS_pwrite64, EIO, Kind::SAVE, true, true},
        {SYS_rename, EIO, Kind::SAVE, true, true},
        {SYS_fsync, EIO, Kind::SAVE, true, false},
        {SYS_statx, EACCES, Kind::SAVE, true, false},
        {SYS_fsync, EINVAL, Kind::SAVE, false, true}, // a file system without a disk
        {SYS_link, EPERM, Kind::SAVE, false, false},  // is moved there in place of its deletion
        {SYS_link, EPERM, Kind::IMPORT, false, true}, // is copied
    };
    writeFile("/data/cfg/b", "old");
    for (const auto& [call, error, kind, fails, keeps] : cases) {
        ChangeJournal journal;
        ChangeRecord change;
        change.kind = kind;
        change.name = "b";
        ChangeJournal::Begun begun{};
        std::thread([&, call = call, error = error] {
            refuse(call, 0, 0, static_cast<unsigned>(error));
            begun = journal.begin(change, "/data/cfg/b");
        }).join();
        EXPECT_EQ(fails ? error : 0, begun.error) << call;
        const std::string kept = journal.find(begun.number).kept;
        EXPECT_EQ(keeps ? "old" : "", kept.empty() ? "" : readFile(kept)) << call << ' ' << error;
        EXPECT_EQ("old", readFile("/data/cfg/b"));
        journal.forgetAutoStart();
        journal.cancel(begun.number);
        EXPECT_EQ("", journal.find(begun.number).name);
        journal.confirmFailure(begun.number);
        journal.end(begun.number);
        std::filesystem::remove_all(kChangesBeside);
    }
}

TEST(ChangeJournalTest, ASaveOfANewNameTakesThePlaceOfAnEarlierOneThatNeverCame)
{
    ChangeJournal journal;
    ChangeRecord save;
    save.name = "b";
    save.autoStartBefore = "a";
    save.autoStartAfter = "b";
    const auto first = journal.begin(save).number;
    save.autoStartBefore = "b"; // the first's
    const auto second = journal.begin(save).number;
    EXPECT_EQ("", journal.find(first).name);
    EXPECT_EQ("a", journal.find(second).autoStartBefore); // is no auto-start to go back to
    ChangeRecord remove;
    remove.kind = ChangeRecord::Kind::REMOVE;
    remove.name = "b";
    journal.begin(remove);
    EXPECT_EQ("b", journal.find(second).name);
    writeFile("/data/cfg/b", "has come after all");
    journal.begin(remove);
    EXPECT_EQ("", journal.find(second).name);
}

TEST(ChangeJournalTest, NothingIsLeftOfASaveWhoseFileNeverCameWhenAnotherComes)
{
    ChangeJournal& journal = ChangeJournal::ofProcess();
    ChangeRecord change;
    change.name = "b";
    change.before = CatalogueRow{};
    writeFile("/data/cfg/b", "old");
    const auto save = journal.begin(change, "/data/cfg/b").number;
    std::filesystem::remove("/data/cfg/b");
    journal.confirmAnswer(save, CatalogueRow{}); // without a file
    writeFile("/data/cfg/b", "dropped in");
    change.kind = ChangeRecord::Kind::IMPORT;
    journal.end(journal.begin(change, "/data/cfg/b").number);
    EXPECT_TRUE(eventually([&journal] { return journal.tidy().count() == 0; }));
    EXPECT_FALSE(std::filesystem::exists(kChangesBeside));
}

} // namespace
