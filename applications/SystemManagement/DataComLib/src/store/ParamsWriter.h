#pragma once

// Writes the values of one setParams() request, all or none: every value is checked before the
// first is written. Values go to the working copies.

#include "store/ParamsRequest.h"

#include <vector>

class ParamsWriter : private ParamsRequest
{
public:
    /// Checks against the committed tree `documents`; writes into the working copies `changes`.
    ParamsWriter(const Json::Value& documents, Json::Value& changes, const Json::Value& request);

    /// FC_OK, or the code of the last refusal. A refusal ends its component; the others are still
    /// checked, so that the log shows what is wrong with each.
    Fcodes check();

    /// Writes all that check() has accepted; only when it returned FC_OK.
    void write();

private:
    struct Write {
        std::string component;
        RequestRow row;
        std::string property;
        Json::Value value;
    };

    Fcodes checkRequest() const;
    Fcodes checkComponent(const std::string& component, const Json::Value& wanted);
    Fcodes checkRow(const std::string& component, const Json::Value& element,
                    Json::ArrayIndex position, const Json::Value* values);
    Fcodes checkValue(const std::string& component, const RequestRow& row,
                      const Json::Value& instance, const std::string& property,
                      const Json::Value& value);

    const Json::Value* findDefinition(const std::string& component,
                                      const std::string& property) const;
    ParamRef address(const std::string& component, const RequestRow& row,
                     const std::string& property) const;

    Json::Value& mChanges;
    std::vector<Write> mWrites;
};
