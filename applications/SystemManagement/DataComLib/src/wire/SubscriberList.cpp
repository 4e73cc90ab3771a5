#include "wire/SubscriberList.h"

#include <cerrno>
#include <iterator>
#include <sys/stat.h>

namespace
{

bool isMissing(const SocketAddress& subscriber)
{
    struct stat socket {
    };
    return stat(subscriber.path().c_str(), &socket) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

} // namespace

SubscriberList::Result SubscriberList::add(const SocketAddress& subscriber,
                                           std::optional<uid_t> user)
{
    mCopy.reset();
    if (const auto listed = mIndex.find(subscriber.bytes()); listed != mIndex.end()) {
        mAddresses.splice(mAddresses.end(), mAddresses, listed->second.at);
        if (!user)
            release(listed->second);
        return Result::LISTED;
    }
    const auto isFull = [&] {
        const auto count = user ? mCounts.find(*user) : mCounts.end();
        return count != mCounts.end() && count->second >= kMaxOfOneUser;
    };
    if (isFull())
        dropMissing(*user);
    if (isFull())
        return Result::USER_FULL;
    if (mAddresses.size() >= kMaxSubscribers)
        return Result::LIST_FULL;
    mAddresses.push_back(subscriber);
    mIndex.emplace(mAddresses.back().bytes(), Listed{std::prev(mAddresses.end()), user});
    if (user)
        ++mCounts[*user];
    return Result::LISTED;
}

/// It counts for nobody from here on.
void SubscriberList::release(Listed& listed)
{
    if (listed.user && --mCounts[*listed.user] == 0)
        mCounts.erase(*listed.user);
    listed.user.reset();
}

void SubscriberList::dropMissing(uid_t user)
{
    for (auto next = mIndex.begin(); next != mIndex.end();) {
        const auto listed = next++;
        if (listed->second.user != user || !isMissing(*listed->second.at))
            continue;
        release(listed->second);
        const auto address = listed->second.at;
        mIndex.erase(listed); // its key is the address's
        mAddresses.erase(address);
    }
}

std::shared_ptr<const SubscriberList::Addresses> SubscriberList::addresses()
{
    if (mCopy == nullptr)
        mCopy = std::make_shared<Addresses>(mAddresses.begin(), mAddresses.end());
    return mCopy;
}
