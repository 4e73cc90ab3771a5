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
