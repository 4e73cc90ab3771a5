#include "IDataSets.h"

#include "DataSetsFactory.h"
#include <gtest/gtest.h>
#include <memory>

TEST(ContractTest, JsonValuesComeWithTheStore)
{
    DataSetsFactory factory;
    const std::unique_ptr<IDataSets> store(factory.createDataSets());
    std::list<std::string> values;
    std::vector<std::string> names;
    store->lock(); // several calls, one step
    store->loadComponent("D", "C", "{}");
    EXPECT_EQ(FC_NO_SUCH_NAME, store->getProperties("D", "C", names));
    Json::Value request;
    Json::Value reply;
    request["dataset"] = "None";
    for (auto operation : {&IDataSets::setParams, &IDataSets::getParams,
                           &IDataSets::fetchPropertyNames, &IDataSets::fetchComponentKeys}) {
        const unsigned code = (store.get()->*operation)(request, reply);
        EXPECT_EQ(code, reply["fcode"].asUInt());
    }
    EXPECT_EQ(FC_OK, store->onGetComponentValue("D", "C", "P", 0) | store->onGetDataset("D"));
    store->unlock();
}
