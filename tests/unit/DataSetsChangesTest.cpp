#include "StoreFixture.h"

namespace
{

constexpr char kDocument[] = R"({
    'K': {'properties': {'v': {'type': 'integer'}}, 'instances': {'a': {'v': 1}, 'b': {'v': 2}}},
    'S': {'properties': {'v': {'type': 'integer'}}, 'instance': {'v': 3}},
    'I': {'properties': {'v': {'type': 'integer'}}, 'instances': [{'v': 4}, {'v': 5}]}
})";

class DataSetsChangesTest : public StoreTest
{
protected:
    void SetUp() override { load(kDocument); }

    /// The pending value and the committed one.
    template <typename Instance>
    std::string values(const std::string& component, const Instance& instance)
    {
        int committedValue = -1;
        int pendingValue = -1;
        store.getIntParam("D", component, "v", committedValue, instance);
        store.getNewIntParam("D", component, "v", pendingValue, instance);
        return std::to_string(pendingValue) + " over " + std::to_string(committedValue);
    }
};

TEST_F(DataSetsChangesTest, AFreshStoreHasNothingToEnd)
{
    EXPECT_FALSE(store.isChanged());
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_EQ(FC_OK, store.rollback());
    EXPECT_EQ(FC_OK, store.commitComponent("D", "K"));
    EXPECT_EQ(FC_OK, store.rollbackComponent("X", "K"));
    store.touchDataSet("X");
    store.touchComponent("D", "X");
    EXPECT_FALSE(store.isChanged());
    EXPECT_EQ(json(kDocument), committed());
}

TEST_F(DataSetsChangesTest, CommitCopiesEveryPendingValueAndRollbackForgetsThem)
{
    load(kDocument, "E");
    const auto change = [this] {
        store.setIntParam("D", "K", "v", 10, "a");
        store.setIntParam("D", "S", "v", 30, "");
        store.setIntParam("D", "I", "v", 50, 1);
        store.setIntParam("E", "K", "v", 20, "b");
    };
    change();
    EXPECT_EQ("10 over 1", values("K", "a"));
    EXPECT_EQ("30 over 3", values("S", ""));
    EXPECT_EQ("50 over 5", values("I", 1));

    EXPECT_EQ(FC_OK, store.rollback());
    EXPECT_EQ("1 over 1", values("K", "a"));
    EXPECT_FALSE(store.isChanged());
    EXPECT_EQ(json(kDocument), committed());

    change();
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_FALSE(store.isChanged());
    EXPECT_EQ(json("{'K': {'properties': {'v': {'type': 'integer'}}, 'instances': {'a': {'v': 10}, "
                   "'b': {'v': 2}}}, 'S': {'properties': {'v': {'type': 'integer'}}, 'instance': "
                   "{'v': 30}}, 'I': {'properties': {'v': {'type': 'integer'}}, 'instances': "
                   "[{'v': 4}, {'v': 50}]}}"),
              committed());
    int value = 0;
    EXPECT_EQ(FC_OK, store.getIntParam("E", "K", "v", value, "b"));
    EXPECT_EQ(20, value);
}

TEST_F(DataSetsChangesTest, PresenceAndNotDifferenceCountsAsChanged)
{
    store.touchComponent("D", "K");
    EXPECT_TRUE(store.isChangedDataSet("D"));
    EXPECT_TRUE(store.isChangedComponent("D", "K"));
    EXPECT_FALSE(store.isChangedComponent("D", "S"));
    EXPECT_TRUE(store.isChangedInstance("D", "K", "a"));
    EXPECT_FALSE(store.isChangedInstance("D", "K", ""));
    EXPECT_FALSE(store.isChangedInstance("D", "K", 0));
    EXPECT_TRUE(store.isChangedProperty("D", "K", "v", "a"));
    EXPECT_FALSE(store.isChangedProperty("D", "K", "w", "a"));

    store.untouchProperty("D", "K", "v", 0);
    EXPECT_TRUE(store.isChangedProperty("D", "K", "v", "a"));
    store.untouchProperty("D", "K", "v", "a");
    EXPECT_FALSE(store.isChangedProperty("D", "K", "v", "a"));
    EXPECT_TRUE(store.isChangedInstance("D", "K", "a"));
    EXPECT_TRUE(store.isChangedProperty("D", "K", "v", "b"));

    store.untouchComponent("D", "K");
    EXPECT_FALSE(store.isChangedComponent("D", "K"));
    EXPECT_TRUE(store.isChanged());
    store.untouchDataSet("D");
    EXPECT_FALSE(store.isChanged());
}

TEST_F(DataSetsChangesTest, AfterCommitComponentTheDatasetIsStillChanged)
{
    store.setIntParam("D", "K", "v", 10, "a");
    store.setIntParam("D", "S", "v", 30, "");
    EXPECT_EQ(FC_OK, store.commitComponent("D", "K"));
    EXPECT_EQ("10 over 10", values("K", "a"));
    EXPECT_EQ("30 over 3", values("S", ""));
    EXPECT_FALSE(store.isChangedComponent("D", "K"));
    EXPECT_EQ(FC_OK, store.rollbackComponent("D", "S"));
    EXPECT_EQ("3 over 3", values("S", ""));
    EXPECT_TRUE(store.isChangedDataSet("D"));
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_FALSE(store.isChangedDataSet("D"));
}

TEST_F(DataSetsChangesTest, CommitNeverRemovesAndMakesWhatIsMissing)
{
    store.touchDataSet("D");
    store.untouchProperty("D", "K", "v", "a");
    store.removeInstance("D", "K", "b");
    store.removeInstance("D", "I", 0);
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_EQ(json(kDocument), committed());

    store.touchComponent("D", "K");
    store.untouchProperty("D", "K", "v", "a");
    store.removeInstance("D", "K", "a");
    store.commit();
    EXPECT_FALSE(store.hasInstance("D", "K", "a")) << "nothing was pending in it";

    store.setIntParam("D", "K", "v", 9, "b");
    store.setIntParam("D", "I", "v", 7, 1);
    store.deleteDataSet("D");
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_EQ(json("{'I': {'instances': [null, {'v': 7}]}, 'K': {'instances': {'b': {'v': 9}}}}"),
              committed());
}

TEST_F(DataSetsChangesTest, TouchingReplacesWhatIsPendingWithACopyOfTheCommittedData)
{
    store.setIntParam("D", "K", "v", 10, "a");
    store.touchComponent("D", "K");
    EXPECT_EQ("1 over 1", values("K", "a"));
    store.setIntParam("D", "K", "v", 10, "a");
    store.touchDataSet("D");
    store.initIntParam("D", "S", "v", 8, "");
    EXPECT_EQ("8 over 8", values("S", ""));
    store.removeInstance("D", "K", "a");
    EXPECT_EQ("1 over -1", values("K", "a"));
}

TEST_F(DataSetsChangesTest, ValuesThatNoLongerFitAreSkippedWithALine)
{
    store.touchComponent("D", "I");
    store.setIntParam("D", "S", "v", 8, "");
    load(R"({'I': {'instances': {'k': {}}}, 'S': {'instance': {'v': 3}}})");
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_EQ((Lines{"ERROR commit: Couldn't commit dataset=D comp=I ind=0, "
                     "the committed data has another shape",
                     "ERROR commit: Couldn't commit dataset=D comp=I ind=1, "
                     "the committed data has another shape"}),
              logged());
    EXPECT_EQ(json("{'I': {'instances': {'k': {}}}, 'S': {'instance': {'v': 8}}}"), committed());
}

} // namespace
