#include "DataCommunicator.h"

namespace
{

/// Never called: what no test calls takes these arguments in this order, and the message records
/// come with it.
[[maybe_unused]] void callEach(DataCommunicator& communicator)
{
    MessageHeader header;
    std::string text;
    MessageEvent event;
    communicator.setDataHolder(communicator.getDataHolder());
    communicator.work();
    communicator.doWork();
    Fcodes code = communicator.sendRequest("/tmp/sockB", header, text, header, text, 10, 3);
    code |= communicator.treatCommandMsg(header, text, header, text);
    code |= communicator.treatDataMsg(header, text, header, text);
    communicator.timeToString(0, text);
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
