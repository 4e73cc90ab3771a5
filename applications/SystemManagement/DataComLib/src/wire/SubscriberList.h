#pragma once

// The receive sockets of the observers, in the order of subscription. Any local process may
// subscribe any path, and each event costs what the list is long, so the list has a limit and
// whoever is no part of the suite a lower one. Adding stays cheap at both. No lock, no log.

#include "wire/DatagramSocket.h"

#include <cstddef>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

class SubscriberList
{
public:
    static constexpr std::size_t kMaxSubscribers = 20000;
    static constexpr std::size_t kMaxOfOneUser = 100;

    using Addresses = std::vector<SocketAddress>;
    enum class Result { LISTED, LIST_FULL, USER_FULL };

    /// Adds the socket at the end; one that is listed already moves there. It counts for the user
    /// who was the first to add it, until somebody without a limit, who is no user here, adds it
    /// too. One who has reached the limit gives up those of his paths where there is nothing.
    Result add(const SocketAddress& subscriber, std::optional<uid_t> user = std::nullopt);

    /// What is listed now; a later add() does not change it.
    std::shared_ptr<const Addresses> addresses();

private:
    struct Listed {
        std::list<SocketAddress>::iterator at;
        std::optional<uid_t> user;
    };

    void release(Listed& listed);
    void dropMissing(uid_t user);

    std::shared_ptr<const Addresses> mCopy; // null when the list has changed since
    std::list<SocketAddress> mAddresses;
    std::unordered_map<std::string_view, Listed> mIndex; // by their bytes
    std::unordered_map<uid_t, std::size_t> mCounts;      // of the users who have any
};
