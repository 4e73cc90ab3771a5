// The requester's side of the communicator: reads and writes one data item of a peer.

#include "DataCommunicator.h"

#include "DbgLine.h"
#include "wire/MessageFrame.h"

namespace
{

constexpr char kUnit[] = "DataCommunicator";
constexpr std::size_t npos = std::string::npos;

/// The type and the log texts of a request for one data item.
struct ItemOperation {
    const char* type;
    const char* failed;
    const char* code;
    const char* request;
    const char* mismatch;
    const char* empty;
    const char* noItem;
    const char* noName;
    const char* requested;
    const char* noValue;
};

constexpr ItemOperation kGetItem = {
    .type = kTypeGet,
    .failed = "requestDataItem: Failed to sendRequest:\n",
    .code = "requestDataItem: FCODE=",
    .request = "requestDataItem: Request Header was:\n",
    .mismatch = "requestDataItem: Response Header mismatch:\n",
    .empty = "requestDataItem: Body size=0 in get response",
    .noItem = "requestDataItem: No Item segment in response:\n",
    .noName = "requestDataItem: No Name tags in response:\n",
    .requested = "requestDataItem: requested=",
    .noValue = "requestDataItem: No Value tags in response:\n",
};

// Kept on purpose: callers count on a write whose answer has no body being a body error, although a
// SET is answered without one; the code of the peer is part of the result.
constexpr ItemOperation kSetItem = {
    .type = kTypeSet,
    .failed = "requestSetDataItem: Failed to sendRequest:\n",
    .code = "requestSetDataItem: FCODE=",
    .request = "requestSetDataItem: Request Header was:\n",
    .mismatch = "requestSetDataItem: Response Header mismatch:\n",
    .empty = "requestSetDataItem: Body size=0 in set response",
    .noItem = "requestSetDataItem: No Item segment in response:\n",
    .noName = "requestSetDataItem: No Name tags in response:\n",
    .requested = "requestSetDataItem: requested=",
    .noValue = "requestSetDataItem: No Value tags in response:\n",
};

/// Takes the value of the one item that was asked for out of an answer.
Fcodes readItem(const ItemOperation& operation, const std::string& body, const std::string& item,
                std::string& value)
{
    if (body.empty()) {
        DBG_LOG(SEV_ERROR) << operation.empty;
        return FC_BODY_ERROR;
    }
    std::string element;
    if (getSegment(body, 0, "Item", element) == npos) {
        DBG_LOG(SEV_ERROR) << operation.noItem << body;
        return FC_BODY_ERROR;
    }
    std::string name;
    if (getPropertyValue(element, 0, "Name", name) == npos) {
        DBG_LOG(SEV_ERROR) << operation.noName << body;
        return FC_BODY_ERROR;
    }
    if (name != item) {
        DBG_LOG(SEV_ERROR) << operation.requested << item << " got=" << name << " in response:\n"
                           << body;
        return FC_BODY_ERROR;
    }
    if (getPropertyValue(element, 0, "Value", value) == npos) {
        DBG_LOG(SEV_ERROR) << operation.noValue << body;
        return FC_BODY_ERROR;
    }
    return FC_OK;
}

Fcodes requestItem(DataCommunicator& communicator, const ItemOperation& operation,
                   const std::string& responderPath, const std::string& body,
                   const std::string& item, std::string& value, int timeout, int tries)
{
    MessageHeader request = requestHeaderFor(operation.type, body);
    MessageHeader response;
    std::string responseBody;
    const Fcodes result = communicator.sendRequest(responderPath, request, body, response,
                                                   responseBody, timeout, tries);
    if (result != FC_OK) {
        DBG_LOG(SEV_ERROR) << operation.failed << headerText(request) << body;
        DBG_LOG(SEV_ERROR) << operation.code << result;
        return result;
    }
    if (response.ID != request.ID || response.Type != kTypeResponse) {
        DBG_LOG(SEV_ERROR) << operation.request << headerText(request);
        DBG_LOG(SEV_ERROR) << operation.mismatch << headerText(response);
        return FC_HEADER_ERROR;
    }
    return readItem(operation, responseBody, item, value) | response.Fcode;
}

} // namespace

Fcodes DataCommunicator::requestDataItem(const std::string& responderPath, const std::string& table,
                                         int row, const std::string& item, std::string& value,
                                         int timeout, int tries)
{
    const std::string body = tableItemBody(table, row, itemElement(item));
    return requestItem(*this, kGetItem, responderPath, body, item, value, timeout, tries);
}

Fcodes DataCommunicator::requestSetDataItem(const std::string& responderPath,
                                            const std::string& table, int row,
                                            const std::string& item, const std::string& value,
                                            int timeout, int tries)
{
    const std::string body = tableItemBody(table, row, itemElement(item, value));
    std::string written; // ignored
    return requestItem(*this, kSetItem, responderPath, body, item, written, timeout, tries);
}

Fcodes DataCommunicator::requestGetParam(const std::string& responderPath,
                                         const std::string& dataSet, const std::string& component,
                                         const std::string& row, const std::string& item,
                                         std::string& value, int timeout, int tries)
{
    const std::string body = componentItemBody(dataSet, component, row, itemElement(item));
    // Kept on purpose: log readers count on these lines being those of requestDataItem.
    return requestItem(*this, kGetItem, responderPath, body, item, value, timeout, tries);
}
