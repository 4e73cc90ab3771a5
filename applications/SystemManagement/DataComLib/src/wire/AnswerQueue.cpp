#include "wire/AnswerQueue.h"

#include <algorithm>
#include <utility>

namespace
{

using namespace std::chrono_literals;

constexpr int kTries = 3;
constexpr auto kTryLasts = 1s;
constexpr auto kPause = 10s; // behind each try
constexpr auto kShortestWait = 1ms;

} // namespace

bool AnswerQueue::isWaiting(const SocketAddress& receiver) const
{
    return !mPeers.empty() && mPeers.contains(keyOf(receiver));
}

bool AnswerQueue::add(Answer& answer, Time now, bool offered)
{
    if (mCount >= kMaxOfAll)
        return false;
    const auto [entry, isNew] = mPeers.try_emplace(keyOf(answer.receiver));
    Peer& peer = entry->second;
    if (peer.answers.size() >= kMaxOfPeer)
        return false;
    peer.answers.push_back(std::move(answer));
    ++mCount;
    if (isNew)
        begin(peer, now);
    if (isNew && offered)
        keep(peer.answers.front().receiver, now);
    return true;
}

AnswerQueue::Time AnswerQueue::nextTurn() const
{
    const auto first = firstDue();
    return first == mPeers.end() ? Time::max() : first->second.due;
}

std::optional<AnswerTurn> AnswerQueue::turn(Time now) const
{
    const auto first = firstDue();
    if (first == mPeers.end() || first->second.due > now)
        return std::nullopt;
    const Peer& peer = first->second;
    using enum AnswerTurn::Step;
    return AnswerTurn{&peer.answers.front(), peer.triesLeft == 0 ? GIVE_UP
                                             : peer.tryBegan     ? OFFER
                                                                 : BEGIN_TRY};
}

int AnswerQueue::keep(const SocketAddress& receiver, Time now)
{
    Peer& peer = mPeers.at(keyOf(receiver));
    if (!peer.tryBegan)
        peer.tryBegan = now;
    const auto elapsed = now - *peer.tryBegan;
    if (elapsed < kTryLasts) {
        peer.due = std::min(now + std::max<Time::duration>(elapsed, kShortestWait),
                            *peer.tryBegan + kTryLasts);
        return 0;
    }
    peer.tryBegan.reset();
    peer.due = now + kPause;
    return peer.triesLeft--;
}

void AnswerQueue::remove(const SocketAddress& receiver, Time now)
{
    const auto entry = mPeers.find(keyOf(receiver));
    Peer& peer = entry->second;
    peer.answers.pop_front();
    --mCount;
    if (peer.answers.empty())
        mPeers.erase(entry);
    else
        begin(peer, now);
}

std::string AnswerQueue::keyOf(const SocketAddress& receiver)
{
    return {reinterpret_cast<const char*>(&receiver.address()), receiver.length()};
}

void AnswerQueue::begin(Peer& peer, Time now)
{
    peer.due = now;
    peer.tryBegan.reset();
    peer.triesLeft = kTries;
}

AnswerQueue::Peers::const_iterator AnswerQueue::firstDue() const
{
    return std::ranges::min_element(
        mPeers, {}, [](const Peers::value_type& entry) { return entry.second.due; });
}
