#pragma once

// The client's end of the wire: it asks the configuration manager, and reads the manager's events.
// There is no responder thread: the process asks, waits for the answer, and ends. One thread.

#include "ClientSockets.h"
#include "DataCommunicator.h"
#include "Fcodes.h"

#include <string>

/// What came back. `came` is false when nobody answered in time.
struct Answer {
    bool came = false;
    Fcodes code = FC_COMM_ERROR;
    std::string body;

    bool ok() const { return came && code == FC_OK; }
};

class CfgClient
{
public:
    CfgClient();
    ~CfgClient();

    CfgClient(const CfgClient&) = delete;
    CfgClient& operator=(const CfgClient&) = delete;

    /// Time-outs are in seconds. A request is sent once: it may change things. One that no message
    /// can carry is not sent: std::invalid_argument.
    Answer sendCommand(const MessageCommand& command, int timeout);
    Answer getData(const std::string& body, int timeout);

    /// Asks for the manager's events, from here on or again.
    Answer subscribe(int timeout);

    /// Waits for the next event; false when none has come in time.
    bool nextEvent(MessageEvent& event, int timeout);

private:
    Answer ask(const char* type, const char* answerType, const std::string& body, int timeout);

    DataCommunicator mCommunicator;
    int mEvents = -1; // has the receive path: nobody else reads in this process
    ClientSockets mSockets;
};

/// Throws std::invalid_argument, with words for the user, when the message format cannot carry the
/// text as a value: it knows no escaping, and its elements are found by their angle brackets.
void requireValidText(const std::string& value);
