// Subscriptions of this process to its peers, kept up across their restarts.

#include "DataCommunicator.h"

#include "DbgLine.h"
#include "wire/SubscriptionRenewal.h"

#include <algorithm>
#include <chrono>
#include <sys/prctl.h>
#include <system_error>
#include <thread>
#include <utility>

namespace
{

constexpr char kUnit[] = "DataCommunicator";

} // namespace

bool DataCommunicator::keepSubscribed(const std::string& responderPath,
                                      std::function<void()> onSubscribed)
{
    const std::lock_guard guard(mKeptPeersMutex);
    auto peer = std::ranges::find(mKeptPeers, responderPath, &KeptPeer::path);
    if (peer == mKeptPeers.end())
        peer = mKeptPeers.insert(peer, {responderPath, std::move(onSubscribed)});
    return startKeeping(*peer);
}

/// A thread for each peer: one that does not answer holds who asks it for half a minute.
bool DataCommunicator::startKeeping(KeptPeer& peer)
{
    try {
        if (!peer.hasThread)
            std::thread(&DataCommunicator::renewSubscriptions, this, std::cref(peer)).detach();
        peer.hasThread = true;
    } catch (const std::system_error& error) {
        DBG_LOG(SEV_ERROR) << "keepSubscribed: thread create failed sock=" << peer.path
                           << " errno=" << error.code().value();
    }
    return peer.hasThread;
}

void DataCommunicator::renewSubscriptions(const KeptPeer& peer)
{
    setTaskName(currentTaskId(), mTaskName);
    prctl(PR_SET_NAME, "KeepSubscribed");
    SubscriptionRenewal renewal;
    for (;; std::this_thread::sleep_for(SubscriptionRenewal::kLookInterval)) {
        const SocketFile file = SocketFile::at(peer.path);
        if (!renewal.isDue(file, std::chrono::steady_clock::now()))
            continue;
        const bool answered = requestSubscribe(peer.path) == FC_OK;
        if (!renewal.asked(file, answered, std::chrono::steady_clock::now()))
            continue;
        DBG_LOG(SEV_INFO) << "keepSubscribed: Subscribed to sock=" << peer.path;
        if (peer.onSubscribed)
            peer.onSubscribed();
    }
}
