#include "KeptDataSet.h"

#include "ChildProcess.h"
#include "StoreFixture.h"

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
    for (const char* broken : {"", "{", "[]", R"({"components": {"Fans": []}})"})
        EXPECT_EQ(R"(Fans{"left":{"Speed":900}}Gone{})", loadAgain(broken, FC_BODY_ERROR));
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
}

TEST_F(KeptDataSetTest, AStoreThatTheDiskRefusesIsTriedUntilItSucceeds)
{
    static auto& lasting = *new DataSets; // as a daemon's, until its process ends
    static auto& kept = *new KeptDataSet("D", "/tmp/disk/kept.json", kFactory);
    ASSERT_EQ(FC_OK, kept.load(lasting));
    EXPECT_EQ(FC_UNAVAILABLE, kept.store());
    EXPECT_EQ(FC_UNAVAILABLE, kept.store());
    ASSERT_EQ(0, mkdir("/tmp/disk", 0700));
    EXPECT_TRUE(log.waitFor("store: Stored again file=/tmp/disk/kept.json"));
    EXPECT_NE("", readFile("/tmp/disk/kept.json"));
}

} // namespace
