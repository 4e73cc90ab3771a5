#pragma once

// The client's side of the message exchange: requests to the configuration manager, and its events.
// There is no responder thread: the process sends, waits for the answer, and ends. One thread.

#include "ClientSockets.h"
#include "DataCommunicator.h"
#include "Fcodes.h"

#include <string>

/// The answer to a request; `received` is false when there was none in time.
struct Answer {
    bool received = false;
    Fcodes code = FC_COMM_ERROR;
    std::string body;

    bool ok() const { return received && code == FC_OK; }
};

class CfgClient
{
public:
    CfgClient();
    ~CfgClient();

    CfgClient(const CfgClient&) = delete;
    CfgClient& operator=(const CfgClient&) = delete;

    /// Time-outs are in seconds. A request is sent once, since it may change things. One that does
    /// not fit a message, or holds a text that requireValidText() refuses, is not sent:
    /// std::invalid_argument.
    Answer sendCommand(const MessageCommand& command, int timeout);
    Answer getData(const std::string& body, int timeout);

    /// Subscribes to the manager's events; again after the manager has restarted.
    Answer subscribe(int timeout);

    /// Waits for the next event; false when none has come in time.
    bool nextEvent(MessageEvent& event, int timeout);

private:
    Answer request(const char* type, const char* answerType, const std::string& body, int timeout);

    DataCommunicator mCommunicator;
    int mEventSocket = -1; // bound to the receive path: nobody else reads there
    ClientSockets mSockets;
};

/// Throws std::invalid_argument, with a text for the user, when the message format cannot carry the
/// value: it has no escaping, and its elements are found by their angle brackets.
void requireValidText(const std::string& value);
