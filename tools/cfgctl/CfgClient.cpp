#include "CfgClient.h"

#include "CfgPaths.h"

#include <algorithm>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::size_t kHeaderRoom = 100; // bytes; more than a header of a request takes

} // namespace

CfgClient::CfgClient()
    : mSockets([this](const std::string& receive, const std::string& send) {
          mCommunicator.init(nullptr, receive, send, "tCfgctl");
          mEventSocket = bindSocket(receive);
          chmod(receive.c_str(), 0777); // the manager may run as another user
      })
{
}

CfgClient::~CfgClient() { close(mEventSocket); }

Answer CfgClient::sendCommand(const MessageCommand& command, int timeout)
{
    for (auto param = command.getParamsBegin(); param != command.getParamsEnd(); ++param)
        requireValidText(param->second);
    std::string text;
    return request(kTypeCommand, kTypeAck, "<BODY>\n\t" + command.toString(text) + "\n</BODY>\n",
                   timeout);
}

Answer CfgClient::getData(const std::string& body, int timeout)
{
    return request(kTypeGet, kTypeResponse, body, timeout);
}

Answer CfgClient::subscribe(int timeout)
{
    MessageCommand command;
    command.setId(kCommandSubscribe);
    command.addParam(kParamSockName, mSockets.receivePath());
    return sendCommand(command, timeout);
}

bool CfgClient::nextEvent(MessageEvent& event, int timeout)
{
    MessageHeader header;
    std::string body;
    sockaddr_un sender;
    socklen_t senderLength = 0;
    if (mCommunicator.readMsg(mEventSocket, header, body, sender, senderLength, timeout) != FC_OK ||
        header.Type != kTypeEvent)
        return false;
    std::string element;
    if (getSegment(body, 0, "Event", element) == std::string::npos)
        return false;
    event = MessageEvent();
    if (event.initFromString(element) != FC_OK)
        return false;
    event.Fcode = header.Fcode;
    return true;
}

Answer CfgClient::request(const char* type, const char* answerType, const std::string& body,
                          int timeout)
{
    if (body.size() + kHeaderRoom >= kMessageSizeLimit)
        throw std::invalid_argument("too long for one message");

    MessageHeader header;
    header.Type = type;
    header.Size = static_cast<int>(body.size());
    MessageHeader response;
    Answer answer;
    if (mCommunicator.sendRequest(kCfgSocket, header, body, response, answer.body, timeout, 1) !=
        FC_OK)
        return answer;
    answer.received = true;
    answer.code = response.Fcode;
    if (response.Type != answerType && answer.code == FC_OK)
        answer.code = FC_HEADER_ERROR;
    return answer;
}

void requireValidText(const std::string& value)
{
    const auto breaksMessages = [](unsigned char c) {
        return c < ' ' || c == 0x7f || c == '"' || c == '<' || c == '>';
    };
    if (std::any_of(value.begin(), value.end(), breaksMessages))
        throw std::invalid_argument(
            "names and texts cannot hold double quotes, angle brackets or control characters");
}
