#include "StoreFixture.h"

namespace
{

using testing::ElementsAre;

constexpr char kDocument[] = R"({
    'K': {'properties': {'v': {'type': 'integer'}}, 'instances': {'a': {'v': 1}, 'b': {'v': 2}}},
    'S': {'properties': {'v': {'type': 'integer'}}, 'instance': {'v': 3}},
    'I': {'properties': {'v': {'type': 'integer'}}, 'instances': [{'v': 4}, {'v': 5}]}
})";

class DataSetsChangesTest : public StoreTest
{
protected:
    void SetUp() override { load(kDocument); }

    void change()
    {
        store.setIntParam("D", "K", "v", 10, "a");
        store.setIntParam("D", "S", "v", 30, "");
        store.setIntParam("D", "I", "v", 50, 1);
    }

    /// The pending values, each over the committed one: three that change() changes, one not.
    std::string values()
    {
        const auto value = [this](const char* component, const auto& instance) {
            int held = -1, pending = -1;
            store.getIntParam("D", component, "v", held, instance);
            store.getNewIntParam("D", component, "v", pending, instance);
            return std::to_string(pending) + '/' + std::to_string(held) + ' ';
        };
        return value("K", "a") + value("S", "") + value("I", 0) + value("I", 1);
    }
};

TEST_F(DataSetsChangesTest, CommitAndRollbackWithNothingPendingChangeNothing)
{
    store.touchDataSet("X");
    store.touchComponent("D", "X");
    EXPECT_FALSE(store.isChanged());
    expectEach(FC_OK, {store.commit(), store.rollback(), store.commitComponent("D", "K"),
                       store.rollbackComponent("X", "K")});
    EXPECT_EQ(json(kDocument), committed());
}

TEST_F(DataSetsChangesTest, CommitCopiesEveryPendingValueAndRollbackForgetsThem)
{
    load(kDocument, "E");
    change();
    EXPECT_EQ("10/1 30/3 4/4 50/5 ", values());
    EXPECT_EQ(FC_OK, store.rollback());
    EXPECT_EQ("1/1 3/3 4/4 5/5 ", values());
    EXPECT_FALSE(store.isChanged());

    change();
    store.setIntParam("E", "K", "v", 20, "b");
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_FALSE(store.isChanged());
    EXPECT_EQ("10/10 30/30 4/4 50/50 ", values());
    EXPECT_THAT(store.getInstancesByParameter("E", "K", "v", "(Text) Exactly matches", "20"),
                ElementsAre("b"));
}

TEST_F(DataSetsChangesTest, AWorkingCopyEqualToTheCommittedDataCountsAsChanged)
{
    const auto changed = [this] {
        return std::vector{store.isChangedDataSet("D"),
                           store.isChangedComponent("D", "K"),
                           store.isChangedInstance("D", "K", "a"),
                           store.isChangedProperty("D", "K", "v", "a"),
                           store.isChangedProperty("D", "K", "v", "b"),
                           store.isChangedComponent("D", "S"),
                           store.isChangedInstance("D", "K", ""),
                           store.isChangedInstance("D", "K", 0)};
    };
    store.touchComponent("D", "K");
    EXPECT_THAT(changed(), ElementsAre(true, true, true, true, true, false, false, false));
    store.untouchProperty("D", "K", "v", "a");
    EXPECT_THAT(changed(), ElementsAre(true, true, true, false, true, false, false, false));
    store.untouchComponent("D", "K");
    EXPECT_THAT(changed(), ElementsAre(true, false, false, false, false, false, false, false));
    EXPECT_TRUE(store.isChanged());
    store.untouchDataSet("D");
    EXPECT_FALSE(store.isChanged());
}

TEST_F(DataSetsChangesTest, AfterCommitComponentTheDatasetIsStillChanged)
{
    change();
    expectEach(FC_OK, {store.commitComponent("D", "K"), store.rollbackComponent("D", "I")});
    EXPECT_EQ("10/10 30/3 4/4 5/5 ", values());
    EXPECT_FALSE(store.isChangedComponent("D", "K"));
    store.rollbackComponent("D", "S");
    EXPECT_TRUE(store.isChangedDataSet("D"));
    store.commit();
    EXPECT_FALSE(store.isChangedDataSet("D"));
}

TEST_F(DataSetsChangesTest, CommitRemovesNothingAndRestoresWhatHasGone)
{
    store.touchDataSet("D");
    store.untouchProperty("D", "K", "v", "a");
    expectEach(FC_OK, {store.removeInstance("D", "K", "b"), store.removeInstance("D", "I", 0),
                       store.commit()});
    EXPECT_EQ(json(kDocument), committed());

    store.touchComponent("D", "K");
    store.untouchProperty("D", "K", "v", "a");
    expectEach(FC_OK, {store.removeInstance("D", "K", "a"), store.commit()});
    EXPECT_FALSE(store.hasInstance("D", "K", "a")) << "nothing was pending in it";

    change();
    expectEach(FC_OK, {store.deleteDataSet("D"), store.commit()});
    EXPECT_EQ(json("{'I': {'instances': [null, {'v': 50}]}, 'S': {'instance': {'v': 30}}}"),
              committed());
}

TEST_F(DataSetsChangesTest, TouchingReplacesWhatIsPendingWithACopyOfTheCommittedData)
{
    change();
    store.touchComponent("D", "K");
    EXPECT_EQ("1/1 30/3 4/4 50/5 ", values());
    store.touchDataSet("D");
    expectEach(FC_OK,
               {store.initIntParam("D", "S", "v", 8, ""), store.removeInstance("D", "K", "a")});
    EXPECT_EQ("1/-1 8/8 4/4 5/5 ", values());
}

TEST_F(DataSetsChangesTest, ValuesThatNoLongerFitAreSkippedAndLogged)
{
    change();
    load("{'I': {'instances': {'k': {}}}, 'S': {'instance': {'v': 3}}}");
    EXPECT_EQ(FC_OK, store.commit());
    EXPECT_EQ(Lines{"ERROR commit: Couldn't commit dataset=D comp=I ind=1, "
                    "the committed data has another shape"},
              logged());
    EXPECT_EQ(json("{'I': {'instances': {'k': {}}}, 'K': {'instances': {'a': {'v': 10}}}, "
                   "'S': {'instance': {'v': 30}}}"),
              committed());
}

} // namespace
