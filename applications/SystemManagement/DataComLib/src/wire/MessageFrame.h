#pragma once

// The texts that the communicator puts around what it sends: headers of requests, bodies of
// requests, whole datagrams. Values are inserted as they stand, the format has no escaping. No
// state, no log.

#include "MessageHeader.h"

#include <string>

class MessageEvent;

std::string headerText(const MessageHeader& header);

/// The datagram: header text and body text.
std::string messageText(const MessageHeader& header, const std::string& body);

/// The header of a request with this body, not yet numbered.
MessageHeader requestHeaderFor(const std::string& type, const std::string& body);

/// The command element of a subscription, for requestCommand().
std::string subscribeCommand(const std::string& sockName);

/// Bodies of requests. `itemElement` is one of the two below.
std::string commandBody(const std::string& commandText);
std::string tableItemBody(const std::string& table, int row, const std::string& itemElement);
std::string componentItemBody(const std::string& dataSet, const std::string& component,
                              const std::string& row, const std::string& itemElement);
std::string itemElement(const std::string& item);
std::string itemElement(const std::string& item, const std::string& value);

/// The whole datagram of an event, which carries no number of its own.
std::string eventMessage(const MessageEvent& event);
