#pragma once

// Makes the store of a data holder.

#include "IDataSets.h"

class IDataSetFactory
{
public:
    virtual ~IDataSetFactory() = default;

    /// A new, empty store that the caller owns and deletes; or null, if it cannot be made.
    virtual IDataSets* createDataSets() = 0;
};
