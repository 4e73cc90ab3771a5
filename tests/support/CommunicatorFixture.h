#pragma once

// A communicator on "/tmp/sockA" and "/tmp/sockSendA" with a fake data holder, and with a responder
// thread when a test starts one.

#include "ChildProcess.h"
#include "FakeDataHolder.h"
#include "LogCapture.h"
#include "ScriptedPeer.h"

#include <gmock/gmock.h>

class CommunicatorFixture : public testing::Test
{
protected:
    static constexpr char kSock[] = "/tmp/sockA";
    static constexpr char kSendSock[] = "/tmp/sockSendA";

    CommunicatorFixture() { mCom.init(&mHolder, kSock, kSendSock, "tComA"); }

    /// Nothing ends a responder, so what it uses lives on.
    void startResponder()
    {
        static auto& running = *new std::vector<std::shared_ptr<Endpoint>>;
        running.push_back(mEndpoint);
        mCom.start();
    }

    /// A datagram as a peer writes it.
    static std::string message(const std::string& type, const std::string& body, int id = 7)
    {
        return ScriptedPeer::answerText(id, type, FC_OK, body);
    }

    /// What has been logged since the last look, the communicator's lines without their unit:
    /// "ERROR readMsg: Time out".
    std::vector<std::string> logged() { return mLog.take("DataCommunicator"); }

    struct Endpoint {
        FakeDataHolder holder;
        DataCommunicator communicator;
    };

    LogCapture mLog;
    std::shared_ptr<Endpoint> mEndpoint = std::make_shared<Endpoint>();
    FakeDataHolder& mHolder = mEndpoint->holder;
    DataCommunicator& mCom = mEndpoint->communicator;
};
