#pragma once

// Shared by reading and writing of parameters by JSON request: the request with its dataset, and
// the look-up of its rows in the committed tree. Made for one call of the store, which holds the
// store's lock; its lines are part of the store's log.

#include "Fcodes.h"
#include "store/RequestRow.h"
#include "store/RequestText.h"

#include <json/value.h>
#include <string>

class ParamsRequest
{
protected:
    /// `prefix` begins each line; `documents` is the committed tree.
    ParamsRequest(const char* prefix, const Json::Value& documents, const Json::Value& request);

    /// Whether the request has a "dataset", a text, and whether the store has that dataset.
    bool namesDataset() const { return mNamesDataset; }
    bool hasDataset() const { return mNamesDataset && member(&mDocuments, mDataset) != nullptr; }

    const Json::Value* findComponent(const std::string& component) const;
    const Json::Value* findInstances(const std::string& component) const;

    /// The row. Null when it is missing: then `result` is set and a line is logged.
    const Json::Value* findRow(const std::string& component, const RequestRow& row,
                               Fcodes& result) const;

    const char* const mLogPrefix;
    const Json::Value& mDocuments;
    const Json::Value& mRequest;
    const RequestText mText;
    bool mNamesDataset = false;
    std::string mDataset;
};
