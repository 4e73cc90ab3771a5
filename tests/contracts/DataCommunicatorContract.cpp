#include "DataCommunicator.h"

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

    // The message records come with it.
    event.addParam("a", "1");
    event.getParamsBegin()->second = "2"; // whoever walks the parameters may change them
    event.getParam(event.getParamsBegin()->first, text);
    event.removeParam("a");
    event.cleanUpRelations();
    MessageCommand command;
    command.setId("SUBSCRIBE");
    MessageCommand(command).getId();
}

} // namespace
