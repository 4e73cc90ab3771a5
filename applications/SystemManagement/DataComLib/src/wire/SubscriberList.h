#pragma once

// The receive sockets of the observers, in the order of subscription. Any local process may
// subscribe any path, so the list has a limit and adding stays cheap at it. No lock, no log.

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>

class SubscriberList
{
public:
    static constexpr std::size_t kMaxSubscribers = 20000;

    /// Adds the path at the end; one that is listed already moves there. False when the list is
    /// full.
    bool add(const std::string& path);

    const std::list<std::string>& paths() const { return mPaths; }

private:
    std::list<std::string> mPaths;
    std::unordered_map<std::string_view, std::list<std::string>::iterator> mIndex; // into mPaths
};
