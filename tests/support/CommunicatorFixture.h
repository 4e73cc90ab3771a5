#pragma once

// A communicator on "/tmp/sockA" and "/tmp/sockSendA" with a fake data holder, and with a responder
// thread when a test starts one.

#include "ChildProcess.h"
#include "DataCommunicator.h"
#include "FakeDataHolder.h"
#include "LogCapture.h"
#include "MessageHeader.h"
#include "ScriptedPeer.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

class CommunicatorFixture : public testing::Test
{
protected:
    static constexpr char kSock[] = "/tmp/sockA";
    static constexpr char kSendSock[] = "/tmp/sockSendA";

    CommunicatorFixture() { mCom.init(&mHolder, kSock, kSendSock, "tComA"); }

    /// Nothing ends a responder, so what it uses lives on.
    void startResponder()
    {
        static auto& running = *new std::vector<std::shared_ptr<Party>>;
        running.push_back(mParty);
        mCom.start();
    }

    /// A datagram as a peer writes it.
    static std::string message(const std::string& type, const std::string& body, int id = 7)
    {
        return ScriptedPeer::answerText(id, type, FC_OK, body);
    }

    std::string unit(const std::string& label, const std::string& text)
    {
        return label + " DataCommunicator:" + text;
    }

    bool waitForLog(const std::string& text)
    {
        return eventually([&] { return mLog.text().find(text) != std::string::npos; });
    }

    struct Party {
        FakeDataHolder holder;
        DataCommunicator communicator;
    };

    LogCapture mLog;
    std::shared_ptr<Party> mParty = std::make_shared<Party>();
    FakeDataHolder& mHolder = mParty->holder;
    DataCommunicator& mCom = mParty->communicator;
};
