#include "DataHolder.h"

#include <cerrno>
#include <future>
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
    Fcodes requestAddRow(const std::string& /*target*/, const std::string& /*table*/, int /*rowId*/,
                         int& /*newRowId*/, unsigned timeout, unsigned tries) override
    {
        return Fcodes(timeout + tries);
    }
};

using RequestEvent = Fcodes (DataHolder::*)(const std::string&, MessageEvent&, unsigned, unsigned);
static_assert(std::is_same_v<RequestEvent, decltype(&DataHolder::requestEvent)>);

} // namespace

TEST(ContractTest, AnApplicationReplacesWhatItsHolderOffers)
{
    Application application;
    IDataHolder& holder = application;
    int row = 0;
    EXPECT_EQ(14U, holder.requestNextRowId("/tmp/none", "T", 1, row, 10U, 4U));
    MessageEvent event;
    EXPECT_EQ(FC_COMM_ERROR, application.requestEvent("/tmp/none", event, 10U, 3U));
}

TEST(ContractTest, TheHoldersLockIsRecursiveAndOwnedByItsThread)
{
    Application application;
    EXPECT_EQ(EPERM, application.unlock());
    EXPECT_EQ(0, application.lock() | application.lock());
    auto ofAnother = std::async(std::launch::async, [&] { return application.unlock(); });
    EXPECT_EQ(EPERM, ofAnother.get());
    EXPECT_EQ(0, application.unlock() | application.unlock());
    EXPECT_EQ(EPERM, application.unlock());
}

TEST(ContractTest, ATimeOutOfMinusOneDoesNotWait)
{
    Application application;
    application.getDataCommunicator().init(&application, "/tmp/sockA", "/tmp/sockSendA", "tComA");
    std::string result; // nobody answers at that socket
    const auto atOnce = static_cast<unsigned>(-1);
    EXPECT_EQ(FC_COMM_ERROR,
              application.DataHolder::requestCommand("/tmp/sockA", "", result, atOnce, 1));
}
