#pragma once

// The last answers that arrived and that nobody was waiting for, filed under the identifier of
// their request. The responder files what arrives on the receive socket, a requester what it reads
// for others; the owner of an answer looks here. Any thread may call; the lock is never held while
// anybody waits, so that the responder goes on filing while a request waits.

#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>

struct FiledResponse {
    std::string header; ///< Header text.
    std::string body;
    std::string sender; ///< Path.
};

class ResponseHistory
{
public:
    /// How much is held after a store: for the log.
    struct Sizes {
        std::size_t queue;
        std::size_t entries;
    };

    /// Files an answer; the oldest one goes when more than ten are held. An answer that is there
    /// under the same identifier is replaced, and its turn to go stays what it was.
    Sizes store(int id, FiledResponse response);

    /// Files what somebody other than the responder sent under a request's own identifier. It never
    /// replaces a proper answer, and findAnswer() passes it over.
    Sizes storeForeign(int id, FiledResponse response);

    /// False when there is nothing filed, or nothing but a foreign answer. The answer stays filed.
    bool find(int id, FiledResponse& response) const;
    bool findAnswer(int id, FiledResponse& response) const;

private:
    struct Entry {
        FiledResponse response;
        bool foreign;
    };

    Sizes file(int id, Entry entry);

    mutable std::mutex mMutex; // guards everything below
    std::deque<int> mOrder;    // identifiers in the order of filing; one may stand twice
    std::map<int, Entry> mEntries;
};
