#pragma once

// Makes the JSON store, DataSets. Without state: any thread may use it, on the stack or elsewhere.

#include "IDataSetFactory.h"

class DataSetsFactory : public IDataSetFactory
{
public:
    /// Never null.
    IDataSets* createDataSets() override;
};
