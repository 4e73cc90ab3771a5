#include "DataSetsFactory.h"

#include <gtest/gtest.h>

TEST(ContractTest, TheStoreComesWithItsFactory)
{
    DataSetsFactory factory;
    IDataSetFactory& maker = factory;
    IDataSets* store = maker.createDataSets();
    EXPECT_EQ(FC_OK, store->addDataSet("D"));
    delete store; // the caller owns it
}
