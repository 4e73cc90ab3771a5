#pragma once

// The receive sockets of the observers, in the order of subscription. Any local process may
// subscribe any path, so the list has a limit and adding stays cheap at it. No lock, no log.

#include "wire/DatagramSocket.h"

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class SubscriberList
{
public:
    static constexpr std::size_t kMaxSubscribers = 20000;

    using Addresses = std::vector<SocketAddress>;

    /// Adds the socket at the end; one that is listed already moves there. False when the list is
    /// full.
    bool add(const SocketAddress& subscriber);

    /// What is listed now; a later add() does not change it.
    std::shared_ptr<const Addresses> addresses();

private:
    std::shared_ptr<const Addresses> mCopy; // null when the list has changed since
    std::list<SocketAddress> mAddresses;
    std::unordered_map<std::string_view, std::list<SocketAddress>::iterator>
        mIndex; // by their bytes
};
