#pragma once

// The last answers that arrived and that nobody was waiting for, filed under the identifier of
// their request. The responder files what arrives on the receive socket, a requester what it reads
// for others; the owner of an answer looks here. Any thread may call; the lock is never held while
// a requester waits for an answer, so that the responder can go on filing.

#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

struct FiledResponse {
    std::string header; ///< Header text.
    std::string body;
    std::string sender; ///< Path.
};

class ResponseHistory
{
public:
    /// How much is held after a store, for the log.
    struct Sizes {
        std::size_t queue;
        std::size_t entries;
    };

    /// Files an answer; when more than ten are held, all under the oldest identifier are removed.
    Sizes store(int id, FiledResponse response);

    /// Files what a requester read and was not the answer that it waited for.
    Sizes storeReadByRequester(int id, FiledResponse response);

    /// The answer filed last, which stays filed; false when there is none.
    bool find(int id, FiledResponse& response) const;

    /// The same for the requester that asked `responderPath`: the last answer of that path, else
    /// the last of any path. It passes over what a requester read from another path: anybody may
    /// send anything to the send socket, under any identifier.
    bool findAnswer(int id, const std::string& responderPath, FiledResponse& response) const;

private:
    struct Entry {
        FiledResponse response;
        bool readByRequester;
    };

    Sizes file(int id, Entry entry);

    mutable std::mutex mMutex; // guards everything below
    std::deque<int> mOrder;    // identifiers in the order of filing; one may stand several times
    std::map<int, std::vector<Entry>> mEntries;
};
