#include "wire/SubscriberList.h"

#include <iterator>

bool SubscriberList::add(const SocketAddress& subscriber)
{
    mCopy.reset();
    if (const auto listed = mIndex.find(subscriber.bytes()); listed != mIndex.end()) {
        mAddresses.splice(mAddresses.end(), mAddresses, listed->second);
        return true;
    }
    if (mAddresses.size() >= kMaxSubscribers)
        return false;
    mAddresses.push_back(subscriber);
    mIndex.emplace(mAddresses.back().bytes(), std::prev(mAddresses.end()));
    return true;
}

std::shared_ptr<const SubscriberList::Addresses> SubscriberList::addresses()
{
    if (mCopy == nullptr)
        mCopy = std::make_shared<Addresses>(mAddresses.begin(), mAddresses.end());
    return mCopy;
}
