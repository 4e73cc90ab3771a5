#include "wire/RefusedSenders.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr std::size_t kMostUsers = 64;
constexpr std::size_t kLongestCommand = 64; // bytes
constexpr std::chrono::seconds kLineInterval(1);

} // namespace

void RefusedSenders::add(uid_t user, const std::string& path, std::string_view type,
                         std::string_view command)
{
    auto entry =
        std::ranges::find(mEntries, user, [](const Entry& known) { return known.sender.user; });
    if (entry == mEntries.end()) {
        if (mEntries.size() < kMostUsers)
            mEntries.push_back({{}, Time::min()});
        entry = std::prev(mEntries.end());
    }
    RefusedSender& sender = entry->sender;
    sender = {user, path, std::string(type), sender.times + 1};
    if (!command.empty())
        sender.request.append(" ").append(command.substr(0, kLongestCommand));
}

std::optional<RefusedSender> RefusedSenders::next(Time now)
{
    std::erase_if(mEntries, [now](const Entry& known) {
        return known.sender.times == 0 && known.nextLine <= now;
    });
    const auto due = std::ranges::find_if(mEntries, [now](const Entry& known) {
        return known.sender.times != 0 && known.nextLine <= now;
    });
    if (due == mEntries.end())
        return std::nullopt;
    due->nextLine = now + kLineInterval;
    const RefusedSender told = due->sender;
    due->sender.times = 0;
    return told;
}
