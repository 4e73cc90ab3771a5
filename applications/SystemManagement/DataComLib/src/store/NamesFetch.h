#pragma once

// Answers one fetchPropertyNames() or fetchComponentKeys() request: the names of a component's
// properties, or the keys of its instances. Made for one call of the store, which holds the store's
// lock; its lines are part of the store's log.

#include "Fcodes.h"
#include "store/RequestText.h"

#include <json/value.h>
#include <string>

class NamesFetch
{
public:
    /// How the two operations differ.
    struct Operation {
        const char* prefix;    // of its log lines
        const char* source;    // the member of a component whose names are fetched
        const char* target;    // the member of the reply that lists them
        const char* complaint; // about a component without `source`
    };

    static const Operation kPropertyNames;
    static const Operation kComponentKeys;

    /// `documents` is the committed tree, to which the look-up adds members.
    NamesFetch(const Operation& operation, Json::Value& documents, const Json::Value& request,
               Json::Value& answer)
        : mOperation(operation), mDocuments(documents), mRequest(request), mText(request),
          mAnswer(answer)
    {
    }

    /// FC_OK, or the code of the last failure; the other components are answered nevertheless.
    Fcodes run();

private:
    Fcodes fetch(const std::string& name, const Json::Value* component, Json::Value& document);

    const Operation& mOperation;
    Json::Value& mDocuments;
    const Json::Value& mRequest;
    const RequestText mText;
    Json::Value& mAnswer;
};
