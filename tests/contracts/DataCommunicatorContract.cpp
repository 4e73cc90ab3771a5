#include "DataCommunicator.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace
{

/// Never called: the operations take these arguments in this order.
[[maybe_unused]] void callEach(DataCommunicator& communicator, sockaddr_un& address)
{
    MessageHeader header;
    std::string text;
    socklen_t length = sizeof address;
    MessageEvent event;
    communicator.init(communicator.getDataHolder(), "/tmp/sockA", "/tmp/sockSendA", "tComA");
    communicator.setDataHolder(nullptr);
    communicator.start();
    communicator.work();
    communicator.doWork();
    Fcodes code = communicator.readMsg(0, header, text, address, length, 10);
    code |= communicator.sendMessage(0, header, text, address, length, 10, 3);
    code |= communicator.readline(0, text, 10);
    code |= communicator.sendRequest("/tmp/sockB", header, text, header, text, 10, 3);
    code |= communicator.requestCommand("/tmp/sockB", "<Command", text, 10, 3);
    code |= communicator.requestSubscribe("/tmp/sockB");
    code |= communicator.requestEvent("/tmp/sockB", event, 10, 3);
    code |= communicator.requestDataItem("/tmp/sockB", "T", 1, "Item", text, 10, 3);
    code |= communicator.requestSetDataItem("/tmp/sockB", "T", 1, "Item", "9", 10, 3);
    code |= communicator.requestGetParam("/tmp/sockB", "D", "C", "left", "Speed", text, 10, 3);
    code |= communicator.treatMsg(header, text, header, text);
    code |= communicator.treatCommandMsg(header, text, header, text);
    code |= communicator.treatDataMsg(header, text, header, text);
    code |= communicator.treatEventMsg(header, text);
    communicator.subscribe("/tmp/sockB");
    communicator.notify(event);
    communicator.storeResponse(5, text, text, "/tmp/sockB");
    communicator.getResponse(5, text, text, text);
    communicator.timeToString(0, text);
}

} // namespace

TEST(ContractTest, TheMessageRecordsComeWithTheCommunicator)
{
    MessageEvent event;
    event.addParam("b", "2");
    event.addParam("a", "1");
    auto param = event.getParamsBegin();
    param->second = "3"; // whoever walks the parameters may change them
    std::string value;
    EXPECT_TRUE(event.getParam("a", value));
    EXPECT_EQ("3", value);
    EXPECT_EQ(event.getParamsEnd(), ++ ++param);
    event.removeParam("a");
    event.cleanUpRelations();
    EXPECT_FALSE(event.getParam("b", value));

    MessageCommand command;
    command.setId("SUBSCRIBE");
    std::string text = "old";
    EXPECT_EQ("SUBSCRIBE", MessageCommand(command).getId());
    EXPECT_EQ(FC_OK, MessageCommand().initFromString(command.toString(text)));
    EXPECT_EQ(0U, text.find("<Command"));
}
