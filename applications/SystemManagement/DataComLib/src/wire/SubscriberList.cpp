#include "wire/SubscriberList.h"

bool SubscriberList::add(const std::string& path)
{
    if (const auto listed = mIndex.find(path); listed != mIndex.end()) {
        mPaths.splice(mPaths.end(), mPaths, listed->second);
        return true;
    }
    if (mPaths.size() >= kMaxSubscribers)
        return false;
    mPaths.push_back(path);
    mIndex.emplace(mPaths.back(), std::prev(mPaths.end()));
    return true;
}
