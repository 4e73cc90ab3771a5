#include "DataSetsFactory.h"

#include "DataSets.h"

IDataSets* DataSetsFactory::createDataSets() { return new DataSets; }
