#pragma once

// The catalogue as the client sees it: rows read from the manager with data requests. One answer is
// one message, so a long catalogue is read in batches. One thread.

#include "CfgClient.h"
#include "Fcodes.h"

#include <map>
#include <string>
#include <vector>

/// A row: its key, and its properties by name.
struct Configuration {
    std::string name;
    std::map<std::string, std::string> properties;

    /// "?" for what did not come.
    std::string text(const std::string& property) const;
};

class Catalogue
{
public:
    Catalogue(CfgClient& client, int timeout) : mClient(client), mTimeout(timeout) {}

    /// Appends all rows with the named properties, in the catalogue's order; one that has been
    /// removed since, or fits no answer, is left out. Here and below the code of the answer is the
    /// manager's, and outputs are valid when answer.ok().
    Answer readAll(const std::vector<std::string>& properties, std::vector<Configuration>& rows);

    /// One row with all its properties; FC_BODY_ERROR when the answer does not hold just that.
    /// Throws std::invalid_argument for a name that requireValidText() refuses.
    Answer read(const std::string& name, Configuration& configuration);

    /// The configuration that is started at boot; "" for none.
    Answer readAutoStart(std::string& name);

private:
    Answer readNames(std::vector<std::string>& names);
    Answer readRows(const std::vector<std::string>& names, std::size_t first, std::size_t count,
                    const std::vector<std::string>& properties, std::vector<Configuration>& rows);

    CfgClient& mClient;
    int mTimeout;
};

/// The rows of a GET's answer. Values may hold anything but a double quote.
std::vector<Configuration> parseRows(const std::string& body);
