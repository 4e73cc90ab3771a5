#pragma once

// The answers that wait for peers whose queues are full: whose turn it is and when, each peer's
// order, and how many may wait. It neither sends nor logs; its owner does both, guards it with a
// lock, and tells it how each turn went. All times are the owner's.
//
// An answer has three tries. A try lasts up to a second, as a send that waits for its receiver
// does: the answer is offered again and again, less often the longer it takes. Each try that fails
// is followed by ten seconds, the last one too. The next answer to the same peer begins when the
// one before it is gone.

#include "wire/DatagramSocket.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>

/// An answer on its way, with what its log lines say.
struct Answer {
    SocketAddress receiver;
    std::string text;       ///< The datagram.
    std::size_t bodyAt = 0; ///< Where its body begins.
    int id = 0;
    std::string request{}; ///< Body of the request; of a refusal, empty.

    /// A refusal (NACK) has no body; the one that was built is only logged.
    enum class Kind { RESPONSE, REFUSAL, REFUSAL_OF_LENGTH } kind = Kind::RESPONSE;
    std::string refusedBody{};
};

/// What is to be done with an answer now.
struct AnswerTurn {
    enum class Step {
        BEGIN_TRY, ///< Offer it; a try begins.
        OFFER,     ///< Offer it again, in the same try.
        GIVE_UP,   ///< No try is left.
    };
    const Answer* answer; ///< Stays until remove() of its receiver.
    Step step;
};

class AnswerQueue
{
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::size_t kMaxOfPeer = 64;
    static constexpr std::size_t kMaxOfAll = 256;

    /// Whether answers to this peer wait. Another one must join them: a peer gets its answers in
    /// the order of its requests.
    bool isWaiting(const SocketAddress& receiver) const;

    /// Moves the answer in; false, and the answer is untouched, when too many wait. `offered`: its
    /// first try has begun, and its receiver was full.
    bool add(Answer& answer, Time now, bool offered);

    /// When the next turn is; the end of time when nothing waits.
    Time nextTurn() const;

    /// The turn that is due first, if one is. It ends with one of the two calls below.
    std::optional<AnswerTurn> turn(Time now) const;

    /// The receiver is still full. When that ends the try, the number of tries that were left when
    /// it began; else 0.
    int keep(const SocketAddress& receiver, Time now);

    /// The answer whose turn it was is gone: sent, failed or given up.
    void remove(const SocketAddress& receiver, Time now);

private:
    struct Peer {
        std::deque<Answer> answers;
        Time due;
        std::optional<Time> tryBegan;
        int triesLeft = 0;
    };
    using Peers = std::map<std::string, Peer>; // by the bytes of the address

    static std::string keyOf(const SocketAddress& receiver);
    static void begin(Peer& peer, Time now);
    Peers::const_iterator firstDue() const;

    Peers mPeers;
    std::size_t mCount = 0;
};
