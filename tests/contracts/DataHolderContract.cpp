#include "DataHolder.h"

#include "DataSet.h"
#include "DataTable.h"
#include "MessageEvent.h"
#include <gtest/gtest.h>

namespace
{

/// What an application may write in place of the holder's own.
class Application : public DataHolder
{
public:
    Fcodes doHandle(MessageEvent* /*event*/) override { return FC_OK; }
    DataSet* findDataSetWithTable(const std::string& table) override
    {
        return DataHolder::findDataSetWithTable(table);
    }
    void addDataSet(std::string name, DataSet* dataSet) override
    {
        DataHolder::addDataSet(name, dataSet);
    }
    DataSet* getDataSet(std::string name) override { return DataHolder::getDataSet(name); }
    Fcodes requestCommand(const std::string& /*target*/, const std::string& /*command*/,
                          std::string& /*result*/, unsigned timeout, unsigned tries) override
    {
        mAsked = timeout + tries;
        return FC_OK;
    }

    unsigned mAsked = 0;
};

} // namespace

TEST(ContractTest, AnApplicationReplacesWhatItsHolderOffers)
{
    Application& application = *new Application; // it lives as long as the process
    EXPECT_EQ(0, application.lock());
    EXPECT_EQ(0, application.unlock());
    EXPECT_NE(0, application.unlock()); // it is not held

    IDataHolder& holder = application;
    DataSet tables("S");
    tables.addTable("T", new DataTable("T"));
    holder.addDataSet("S", &tables);
    EXPECT_EQ(&tables, holder.getDataSet("S"));
    EXPECT_EQ(&tables, holder.findDataSetWithTable("T"));
    EXPECT_EQ(FC_OK, holder.addColumnToTable("S", "T", "C", 1, 0));

    int row = 0;
    std::string result;
    MessageEvent event;
    holder.requestCommand("/tmp/none", "<Command", result, 10U, 3U);
    EXPECT_EQ(13U, application.mAsked);
    EXPECT_EQ(FC_OK, holder.requestNextRowId("/tmp/none", "T", 1, row, 10U, 4U));
    EXPECT_EQ(14U, application.mAsked);
    application.getDataCommunicator().init(&holder, "/tmp/sockA", "/tmp/sockSendA", "tComA");
    EXPECT_EQ(FC_COMM_ERROR, application.requestEvent("/tmp/none", event, 10U, 3U));
}
