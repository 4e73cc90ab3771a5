// The store and its JSON values come with the factory.
#include "DataSetsFactory.h"

#include <gtest/gtest.h>
#include <memory>

TEST(ContractTest, TheFactoryMakesAStore)
{
    DataSetsFactory factory;
    IDataSetFactory& maker = factory;
    const std::unique_ptr<IDataSets> store(maker.createDataSets()); // the caller owns it
    std::vector<std::string> names;
    store->lock(); // several calls, one step
    store->loadComponent("D", "C", "{}");
    EXPECT_EQ(FC_NO_SUCH_NAME, store->getProperties("D", "C", names));
    Json::Value request;
    Json::Value reply;
    request["dataset"] = "None";
    EXPECT_EQ(FC_BODY_ERROR, store->getParams(request, reply));
    EXPECT_EQ(FC_OK, store->onGetComponentValue("D", "C", "P", 0) | store->onGetDataset("D"));
    store->unlock();
}
