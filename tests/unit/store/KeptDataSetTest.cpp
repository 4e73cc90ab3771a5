#include "KeptDataSet.h"

#include "ChildProcess.h"
#include "StoreFixture.h"

#include <filesystem>
#include <sys/stat.h>

namespace
{

constexpr char kFile[] = "/tmp/kept.json";
constexpr char kFactory[] = R"({"components": {
    "Fans": {"properties": {"Speed": {"type": "integer", "default": 1200}},
             "instances": {"left": {"Speed": 1200}}},
    "Gone": {"properties": {}, "instances": {}}
}})";
constexpr char kNextFactory[] = R"({"components": {
    "Fans": {"properties": {"Speed": {"type": "integer", "default": 1300},
                            "Limit": {"type": "integer", "default": 9}},
             "instances": {"left": {"Speed": 1300, "Limit": 7}, "right": {"Speed": 1300}}},
    "New": {"properties": {}, "instance": {"A": 1}}
}})";

class KeptDataSetTest : public StoreTest
{
protected:
    /// As the next process would find it.
    std::string loadAgain(const std::string& factory, Fcodes wanted = FC_OK)
    {
        KeptDataSet kept("D", kFile, factory);
        store.deleteDataSet("D");
        EXPECT_EQ(wanted, kept.load(store));
        const Json::Value components = storedDocument()["components"];
        std::string text;
        for (const std::string& name : components.getMemberNames())
            text += name + compact(components[name]["instances"]);
        std::erase_if(text, isspace);
        EXPECT_EQ(FC_NO_SUCH_NAME, store.deleteComponent("D factory", "Fans"));
        return text;
    }
};

TEST_F(KeptDataSetTest, ComesBackWithItsValuesAndTheDefinitionsOfTheNextRelease)
{
    EXPECT_EQ(R"(Fans{"left":{"Speed":1200}}Gone{})", loadAgain(kFactory));
    EXPECT_EQ(0, store.lastStoreError(kFile));
    EXPECT_EQ("", readFile(kFile)); // nothing has been changed
    KeptDataSet kept("D", kFile, kFactory);
    EXPECT_EQ(FC_UNAVAILABLE, kept.store() | kept.commit());
    kept.load(store);
    store.setIntParam("D", "Fans", "Speed", 900, "left");
    EXPECT_EQ(FC_OK, kept.commit());

    EXPECT_EQ(R"(Fans{"left":{"Limit":7,"Speed":900}}Newnull)", loadAgain(kNextFactory));
    write("/tmp/factory", kNextFactory);
    store.deleteDataSet("D");
    EXPECT_EQ(FC_OK, KeptDataSet("D", kFile, FactoryFile{"/tmp/factory"}).load(store));
    EXPECT_TRUE(store.hasInstance("D", "New", kSingleInstance));
    for (const std::string& broken :
         {std::string(), std::string("{"), std::string("[]"), std::string("{}"),
          std::string(2000, '['), std::string(R"({"components": []})"),
          std::string(R"({"components": {"Fans": []}})")})
        EXPECT_EQ(R"(Fans{"left":{"Speed":900}}Gone{})", loadAgain(broken, FC_BODY_ERROR));
    write("/tmp/damaged", "{");
    std::filesystem::resize_file("/tmp/damaged", std::uintmax_t{1} << 40); // a damaged size
    for (const char* factory : {"/tmp/none", "/tmp", "/tmp/damaged"}) {
        store.deleteDataSet("D");
        EXPECT_EQ(FC_BODY_ERROR, KeptDataSet("D", kFile, FactoryFile{factory}).load(store));
        EXPECT_TRUE(store.hasInstance("D", "Fans", "left")) << factory;
    }
    EXPECT_NE("", readFile(kFile));
}

TEST_F(KeptDataSetTest, AFileThatCannotBeUsedIsSetAsideForTheFactorys)
{
    for (const std::string text : {"", "{", "[1]", "{}", R"({"components": {"Fans": 5}})",
                                   R"({"components": {"Fans": {"properties": []}}})"}) {
        writeFile(kFile, text);
        EXPECT_EQ(R"(Fans{"left":{"Speed":1200}}Gone{})", loadAgain(kFactory, FC_UNAVAILABLE));
        EXPECT_EQ(text, readFile(std::string(kFile) + ".damaged"));
        EXPECT_EQ(-1, access(kFile, F_OK)) << text;
    }
    std::filesystem::remove("/tmp/kept.json.damaged");
    std::filesystem::create_directories("/tmp/kept.json.damaged/in the way");
    writeFile(kFile, "{");
    EXPECT_EQ(FC_BODY_ERROR | FC_UNAVAILABLE, KeptDataSet("D", kFile, "{").load(store));
    EXPECT_EQ("{", readFile(kFile));
    EXPECT_THAT(log.text(), testing::HasSubstr("nor rename file=/tmp/kept.json errno=21\n"));
}

TEST_F(KeptDataSetTest, AStoreThatTheDiskRefusesIsTriedUntilItSucceeds)
{
    static auto& lasting = *new DataSets; // as a daemon's, until its process ends
    static auto& kept = *new KeptDataSet("D", "/tmp/disk/kept.json", kFactory);
    ASSERT_EQ(FC_OK, kept.load(lasting));
    EXPECT_EQ(FC_UNAVAILABLE, kept.store());
    EXPECT_EQ(FC_UNAVAILABLE, kept.store());
    KeptDataSet gone("Gone", "/tmp/disk/gone.json", kFactory);
    gone.load(lasting);
    lasting.deleteDataSet("Gone");
    EXPECT_EQ(FC_NO_SUCH_NAME, gone.store()); // nothing to try again
    ASSERT_EQ(0, mkdir("/tmp/disk", 0700));
    EXPECT_TRUE(log.waitFor("store: Stored again file=/tmp/disk/kept.json"));
    EXPECT_NE("", readFile("/tmp/disk/kept.json"));
}

} // namespace
