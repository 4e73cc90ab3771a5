#include "ChildProcess.h"
#include "RandomOperations.h"
#include "StoreFixture.h"
#include "store/DocumentText.h"

#include <bit>
#include <future>
#include <limits>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>

namespace
{

using testing::StartsWith;

using DataSetsTest = StoreTest;

TEST_F(DataSetsTest, MissingUnreadableAndNamelessFilesFailInDifferentWays)
{
    const std::string start = "ERROR loadDataSet: ";
    const std::string bad = start + "Failed to parse a dataset from file=/tmp/f\n err=* ";
    const std::string deep = start + "Exc: Couldn't load dataset file=/tmp/f";
    const std::string nameless = start + "Not found key=dataset in file=/tmp/f";
    // clang-format off
    struct Case { std::string text; Fcodes byItself; std::string byItselfLine; Fcodes named; std::string namedLine; };
    for (const Case& c : {
             Case{"", FC_NO_SUCH_NAME, start + "file stream !good/tmp/f",
                  FC_NO_SUCH_NAME, "ERROR load: file stream !good /tmp/f"},
             Case{"{ 'components': ", FC_UNAVAILABLE, bad, FC_UNAVAILABLE, bad},
             Case{std::string(2000, '['), FC_UNAVAILABLE, deep, FC_UNAVAILABLE, deep},
             Case{"{'components': {}}", FC_NO_SUCH_NAME, nameless, FC_OK, ""},
             Case{"[1]", FC_NO_SUCH_NAME, nameless, FC_OK, ""},
             Case{"{'dataset': ['D']}", FC_UNAVAILABLE, deep, FC_OK, ""},
             Case{"{'dataset': 'Own'}", FC_OK, "", FC_OK, ""},
         }) {
        // clang-format on
        SCOPED_TRACE(c.text.substr(0, 20));
        unlink("/tmp/f");
        if (!c.text.empty())
            write("/tmp/f", c.text);
        const auto expect = [this](Fcodes wanted, const std::string& line, Fcodes result) {
            EXPECT_EQ(wanted, result);
            const Lines lines = logged();
            EXPECT_EQ(line.empty() ? 0u : 1u, lines.size());
            EXPECT_THAT(lines, testing::Each(StartsWith(line)));
        };
        expect(c.byItself, c.byItselfLine, store.loadDataSet("/tmp/f"));
        expect(c.named, c.namedLine, store.loadDataSet("Given", "/tmp/f"));
    }
    EXPECT_EQ(FC_OK, store.storeDataSet("Own", "/tmp/own"));
}

TEST_F(DataSetsTest, ThePagesDocumentIsOne)
{
    const std::string page = readFile(sourceFile("docs/datasets.md"));
    const std::size_t start = page.find("```json\n") + 8;
    writeFile("/tmp/page", page.substr(start, page.find("```", start) - start));
    EXPECT_EQ(FC_OK, store.loadDataSet("/tmp/page"));
    EXPECT_EQ(FC_OK, store.addInstance("CfgDataSet", "ConfigurationsTable", "day"));
    EXPECT_EQ(FC_OK, store.setTextParam("CfgDataSet", "ConfigurationsTable", "State", "Inprogress",
                                        "day"));
    EXPECT_EQ(FC_OK, store.setTextParam("CfgDataSet", "AutoStart", "Name", "day", kSingleInstance));
}

TEST_F(DataSetsTest, WhatIsNoFileIsNotLoadedAndHoldsNobodyUp)
{
    ASSERT_EQ(0, mkfifo("/tmp/fifo", 0600));
    for (const char* path : {"/tmp/fifo", "/dev/zero", "/tmp"}) {
        EXPECT_EQ(FC_NO_SUCH_NAME, store.loadDataSet(path));
        EXPECT_EQ(FC_NO_SUCH_NAME, store.loadDataSet("D", path));
        EXPECT_EQ((Lines{std::string("ERROR loadDataSet: file stream !good") + path,
                         std::string("ERROR load: file stream !good ") + path}),
                  logged());
    }
}

/// Of any shape, with texts, numbers and comments that are written in several ways.
Json::Value anyDocument(const Draw& draw, int depth = 0)
{
    const auto text = [&draw] {
        static const std::string pieces[] = {"a",
                                             "Channels 00042",
                                             "\"",
                                             "\\",
                                             "/",
                                             "\n\t\r\b\f",
                                             "\x7f",
                                             std::string(1, '\0'),
                                             "\x1f",
                                             "\xc3\xa9",
                                             "\xef\xbf\xbf",
                                             "\xf0\x9f\x98\x80",
                                             "\xf4\x8f\xbf\xbf",
                                             "\xed\xa0\x80"};
        std::string all;
        while (draw(3) != 0)
            all += pieces[draw(draw(50) == 0 ? std::size(pieces) : std::size(pieces) - 1)];
        return all;
    };
    const auto bits = [&draw] {
        return std::uint64_t{draw(1U << 31)} << 33 ^ std::uint64_t{draw(1U << 31)} << 10 ^
               draw(1024);
    };
    Json::Value value;
    switch (draw(depth < 5 ? 12 : 7)) {
    case 0:
        break;
    case 1:
        value = static_cast<Json::Int64>(bits()) >> draw(64);
        break;
    case 2:
        value = static_cast<Json::UInt64>(bits()) >> draw(64);
        break;
    case 3:
        value = std::bit_cast<double>(bits());
        break;
    case 4:
        value = static_cast<int>(draw(2000)) / (draw(2) == 0 ? 1.0 : 7.0) - 0.0;
        break;
    case 5:
        value = draw(2) == 0;
        break;
    default:
        value = text();
        break;
    case 7:
    case 8:
        value = Json::Value(Json::arrayValue);
        for (Json::ArrayIndex i = 0; draw(3) != 0; i += 1 + draw(draw(9) == 0 ? 3 : 1)) // with gaps
            value[i] = anyDocument(draw, depth + 1);
        break;
    case 9:
    case 10:
    case 11:
        value = Json::Value(Json::objectValue);
        while (draw(4) != 0)
            value[text()] = anyDocument(draw, depth + 1);
    }
    if (draw(300) == 0)
        value.setComment(std::string("// said"), static_cast<Json::CommentPlacement>(draw(3)));
    return value;
}

TEST_F(DataSetsTest, EveryDocumentHasTheTextThatTheLibraryWrites)
{
    runOperations("text of a document", 20000, [](const Draw& draw) {
        const Json::Value document = anyDocument(draw);
        const std::string ever = compact(document);
        const std::string text = documentText(document);
        // Bytes that are no UTF-8 are the only ones that the library replaces.
        EXPECT_TRUE(text == ever || ever.find("\\ufffd") != std::string::npos) << text;
        return ever;
    });
}

TEST_F(DataSetsTest, KeysAndTextsOfAnyBytesComeBackAfterEachStore)
{
    // Written as ever as long as the library's own text gives everything back, and else raw.
    const auto expectKept = [](const std::string& text) {
        Json::Value document;
        document["list"].append(1.5);
        document[text]["text"] = text;
        const std::string written = documentText(document);
        Json::Value again;
        ASSERT_TRUE(Json::Reader().parse(written, again));
        ASSERT_EQ(document, again) << written;
        const std::string ever = compact(document);
        Json::Reader().parse(ever, again);
        ASSERT_EQ(document == again, written == ever) << written;
    };
    expectKept(std::string("\0\x01\n\"\\/\xff\x7f\0", 9));
    expectKept("\\u00e9");
    using namespace std::string_view_literals;
    for (const char first : "a\xc0\xc1\xc2\xdf\xe0\xe1\xec\xed\xee\xef\xf0\xf1\xf3\xf4\xf5\xff"sv)
        for (const char second : "a\x7f\x80\x8f\x90\x9f\xa0\xbf\xc0"sv)
            for (const char* rest :
                 {"", "\x80", "\xbf\xbf", "\x7f\x80", "\x80\xc0", "\x80\x80\x80"})
                expectKept(std::string{first, second} + rest);

    const std::vector<std::string> names = {"caf\xc3\xa9", "caf\xe8", "caf\xe9"};
    load("{'C': {'properties': {'t': {'type': 'string', 'default': ''}}, 'instances': {}}}");
    for (const std::string& name : names)
        expectEach(FC_OK, {store.addInstance("D", "C", name),
                           store.initTextParam("D", "C", "t", name, name)});
    for (int boot = 0; boot < 3; ++boot) {
        store.storeDataSet("D", "/tmp/names");
        ASSERT_EQ(FC_OK, store.loadDataSet("D", "/tmp/names"));
        std::vector<std::string> found;
        store.getInstances("D", "C", found);
        EXPECT_EQ(names, found);
        for (const std::string& name : names) {
            std::string text;
            store.getTextParam("D", "C", "t", text, name);
            EXPECT_EQ(name, text);
        }
    }
    load("{'C': 'caf\xc3\xa9'}");
    store.storeDataSet("D", "/tmp/plain");
    EXPECT_EQ("{\n\t\"components\" : \n\t{\n\t\t\"C\" : \"caf\\u00e9\"\n\t}\n}",
              readFile("/tmp/plain"));
}

TEST_F(DataSetsTest, TheFileHoldsTheCommittedStateAlsoAfterAFailedLoad)
{
    load("{'C': {'properties': {'v': {'type': 'integer'}}, 'instance': {'v': 1}}}");
    const std::string before = committed();
    store.setIntParam("D", "C", "v", 2, "");
    write("/tmp/f", "{'dataset': 'D', 'components': {]}");
    EXPECT_EQ(FC_UNAVAILABLE, store.loadDataSet("/tmp/f"));
    EXPECT_EQ(before, committed());
    logged();

    EXPECT_EQ(FC_NO_SUCH_NAME, store.storeDataSet("X", "/tmp/none"));
    EXPECT_EQ(-1, access("/tmp/none", F_OK));
    EXPECT_EQ(FC_OK, store.storeDataSet("D", "/tmp/no such dir/file"));
    EXPECT_EQ((Lines{"ERROR storeDataSet: Not found dataset=X",
                     "ERROR storeDataSet: Couldn't write file=/tmp/no such dir/file errno=2"}),
              logged());
    EXPECT_EQ(ENOENT, store.lastStoreError("/tmp/no such dir/file"));
    EXPECT_EQ(0, store.lastStoreError("/tmp/committed.json")); // each path has its own
    mkdir("/tmp/no such dir", 0755);
    EXPECT_EQ(FC_OK, store.storeDataSet("D", "/tmp/no such dir/file"));
    EXPECT_EQ(0, store.lastStoreError("/tmp/no such dir/file"));

    writeFile("/tmp/target", "");
    ASSERT_EQ(0, mount("/tmp/target", "/tmp/f", nullptr, MS_BIND, nullptr)); // cannot be replaced
    logged();
    EXPECT_EQ(FC_OK, store.storeDataSet("D", "/tmp/f"));
    EXPECT_EQ(readFile("/tmp/committed.json"), readFile("/tmp/target"));
    EXPECT_EQ(Lines{"ERROR storeDataSet: Written in place file=/tmp/f errno=16"}, logged());
}

TEST_F(DataSetsTest, AddsFindsAndDeletesDatasetsAndComponents)
{
    expectEach(FC_OK, {store.addComponent("D", "C"), store.loadComponent("A", "L", "[]"),
                       store.loadComponent("D", "L", R"({"instances": [1, 2]})")});
    EXPECT_EQ(json("{'C': {'properties': {}}, 'L': {'instances': [1, 2]}}"), committed());
    EXPECT_EQ(FC_OK, store.loadDataSet("/tmp/committed.json")) << "a dataset knows its own name";

    std::string dataset;
    EXPECT_EQ(FC_OK, store.findDataSetWithComponent(dataset, "L"));
    EXPECT_EQ("A", dataset);
    expectEach(FC_OK, {store.deleteDataSet("A"), store.deleteDataSet("A"),
                       store.findDataSetWithComponent(dataset, "L")});
    EXPECT_EQ(FC_NO_SUCH_NAME, store.findDataSetWithComponent(dataset, "X"));
    EXPECT_EQ("D", dataset);

    expectEach(FC_OK, {store.addComponent("D", "L"), store.deleteComponent("D", "C")});
    EXPECT_EQ(FC_NO_SUCH_NAME, store.deleteComponent("D", "C"));
    EXPECT_EQ(json("{'L': {'properties': {}}}"), committed());
    EXPECT_EQ(FC_OK, store.addDataSet("D"));
    EXPECT_EQ(json("{}"), committed());
}

TEST_F(DataSetsTest, ABadComponentTextIsReportedOnStandardOutput)
{
    const auto expectReported = [this](const std::string& text, const std::string& start) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(FC_UNAVAILABLE, store.loadComponent("D", "C", text));
        EXPECT_THAT(testing::internal::GetCapturedStdout(), StartsWith(start));
    };
    expectReported("{bad", "Failed to parse text:\n{bad\nerror=* Line 1, Column 2\n");
    expectReported(std::string(5000, '['), "Failed to parse text:\n[[");
    EXPECT_EQ(Lines{}, logged());
    EXPECT_EQ(FC_NO_SUCH_NAME, store.storeDataSet("D", "/tmp/none"));
}

TEST_F(DataSetsTest, AStoreThatFailedIsKnownUntilThatStateOrALaterOneIsInTheFile)
{
    const std::string path = "/tmp/small/file";
    mkdir("/tmp/small", 0755);
    ASSERT_EQ(0, mount("small", "/tmp/small", "tmpfs", 0, "size=32k"));
    load("{'C': {'properties': {'t': {'type': 'string'}}, 'instance': {'t': ''}}}");
    store.storeDataSet("D", path);
    const auto text = [this](const char* dataset) {
        std::string found;
        store.getTextParam(dataset, "C", "t", found, "");
        return found;
    };
    for (int round = 0; round < 100; ++round) {
        std::vector<std::thread> threads;
        for (const std::size_t length : {1, 50000, 2, 60000}) // two do not fit
            threads.emplace_back([&, length] {
                store.initTextParam("D", "C", "t", std::string(length, 'x'), "");
                store.storeDataSet("D", path);
            });
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_EQ(FC_OK, store.loadDataSet("F", path));
        ASSERT_EQ(text("D") == text("F"), store.lastStoreError(path) == 0);
    }
}

/// Kept on purpose, so held here: see addComponent().
TEST_F(DataSetsTest, FailedAddDataSetLeavesTheStoreLocked)
{
    struct Refusing : DataSets {
        Fcodes addDataSet(const std::string&) override { return FC_ACCESS_DENIED; }
    } refusing;
    EXPECT_EQ(FC_NO_SUCH_NAME, refusing.addComponent("D", "C"));
    auto other = std::async(std::launch::async, [&refusing] {
        EXPECT_FALSE(refusing.isChanged()); // asks without waiting
        return refusing.hasInstance("D", "C", 0);
    });
    EXPECT_EQ(std::future_status::timeout, other.wait_for(std::chrono::milliseconds(20)));
    refusing.unlock();
    EXPECT_FALSE(other.get());
}

} // namespace
