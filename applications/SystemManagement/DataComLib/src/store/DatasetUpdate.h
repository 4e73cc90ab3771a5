#pragma once

// Brings one dataset into line with a reference, for example a stored catalogue with the factory
// file of a newer release. Made for one call of DataSets::updateDataSet(), which holds the store's
// lock. Its lines are part of the store's log, and their order is fixed.

#include "Fcodes.h"

#include <json/value.h>
#include <string>

class PropertyRule;

class DatasetUpdate
{
public:
    struct Options {
        bool keepAbsent;       // nothing is removed from the source
        bool mergeProperties;  // property definitions follow the reference
        bool replaceInstances; // instances become those of the reference, where it has any
    };

    /// True when the components can serve as a reference. One of a wrong shape cannot: it would
    /// count as having nothing, and everything stored would be removed.
    static bool isReference(const Json::Value& components);

    /// Works on the "components" objects of the two datasets; the names are for the log.
    DatasetUpdate(const std::string& srcName, const std::string& refName, Json::Value& src,
                  const Json::Value& ref)
        : mSrcName(srcName), mRefName(refName), mSrc(src), mRef(ref)
    {
    }

    /// FC_OK, or FC_WRONG_TYPE when a component of the source was of a shape that could not be
    /// updated; the others are updated all the same.
    Fcodes run(const Options& options);

private:
    Fcodes addOrUpdate(const std::string& component, const Json::Value& ref,
                       const Options& options);
    Fcodes replaceInstances(Json::Value& src, const Json::Value& ref);
    Fcodes mergeProperties(const std::string& component, Json::Value& src, const Json::Value& ref);

    void completeInstances(const std::string& component, const std::string& property,
                           Json::Value& src, const Json::Value& ref);
    void completeKeyed(const std::string& property, Json::Value& instances, const Json::Value& ref);

    void removeAbsentProperties(const std::string& component, Json::Value& src,
                                const Json::Value& ref);
    void removeValues(const std::string& property, Json::Value& src);
    void removeAbsentComponents();

    const std::string& mSrcName;
    const std::string& mRefName;
    Json::Value& mSrc;
    const Json::Value& mRef;
};
