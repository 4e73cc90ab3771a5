#include "DataHolder.h"

#include <gtest/gtest.h>

namespace
{

/// What an application may write in place of the holder's own.
class Application : public DataHolder
{
public:
    Fcodes doHandle(MessageEvent* /*event*/) override { return FC_OK; }
    DataSet* findDataSetWithTable(const std::string& /*table*/) override { return nullptr; }
    void addDataSet(std::string /*name*/, DataSet* /*dataSet*/) override {}
    DataSet* getDataSet(std::string /*name*/) override { return nullptr; }
    Fcodes requestCommand(const std::string& /*target*/, const std::string& /*command*/,
                          std::string& /*result*/, unsigned timeout, unsigned tries) override
    {
        return Fcodes(timeout + tries);
    }
};

} // namespace

TEST(ContractTest, AnApplicationReplacesWhatItsHolderOffers)
{
    IDataHolder& holder = *new Application; // it lives as long as the process
    int row = 0;
    EXPECT_EQ(14U, holder.requestNextRowId("/tmp/none", "T", 1, row, 10U, 4U));
}
