#pragma once

// Makes the store of a data holder.

#include "IDataSets.h"

class IDataSetFactory
{
public:
    virtual ~IDataSetFactory() = default;

    /// A new, empty store; the caller owns it.
    virtual IDataSets* createDataSets() = 0;
};
