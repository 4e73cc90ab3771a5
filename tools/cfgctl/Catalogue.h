#pragma once

// The catalogue as the client sees it: rows read from the manager with data requests. One answer is
// one message, so a long catalogue is read in batches. One thread.

#include "DataRequest.h"
#include "Peer.h"

#include <json/value.h>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// What runs on the device.
struct Running {
    std::string name; ///< "" for none, or before a load has been answered
    bool isFallback = false;
};

/// The catalogue's rows, in its order, and the names of those that are there and cannot be read: no
/// request can name them.
struct Listing {
    std::vector<DataRow> rows;
    std::vector<std::string> leftOut;
};

class Catalogue
{
public:
    explicit Catalogue(Peer& peer) : mPeer(peer) {}

    // All throw Failure: of the peer, and with the manager's code when it refuses. What comes back
    // is whole.

    /// All rows with the named properties.
    Listing readAll(const std::vector<std::string>& properties);

    std::vector<std::string> readNames();

    /// One row with all its properties; nothing when there is none of that name.
    std::optional<DataRow> find(const std::string& name);

    /// The same for a name that may well not be there: the manager logs an error for each find() of
    /// such a one.
    std::optional<DataRow> findQuietly(const std::string& name);

    /// As find(); Failure(EXIT_NAME_OR_VALUE) when there is none.
    DataRow read(const std::string& name);

    /// The configuration that is started at boot; "" for none.
    std::string readAutoStart();

    /// Nothing where the manager's catalogue does not say.
    std::optional<Running> readRunning();

private:
    void readRows(std::span<const std::string> names, const std::string& items,
                  std::vector<DataRow>& rows);
    std::optional<std::vector<std::string>> askForNames(); // nothing: they fit no answer
    Listing inOrder(const std::vector<std::string>& names, std::vector<DataRow>& rows);

    Peer& mPeer;
};

/// The failure of a verb that did what it could without the configurations of these names.
Failure leftOutFailure(const std::string& problem, const std::vector<std::string>& names);

/// The same names for JSON.
Json::Value namesAsJson(const std::vector<std::string>& names);
