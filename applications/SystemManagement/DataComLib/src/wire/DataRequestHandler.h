#pragma once

// Serves the data requests GET and SET: which tables or components, rows and items a request
// names, and the holder's values for them. Runs on the responder thread; the request is untrusted.

#include "Fcodes.h"

#include <cstddef>
#include <string>

class IDataHolder;
class MessageHeader;

/// Fills the answer. An answer longer than `sendLimit` is not built further, since it can never be
/// sent. The caller rolls the holder back when a SET fails.
Fcodes treatDataRequest(IDataHolder& dataHolder, const MessageHeader& requestHeader,
                        const std::string& requestBody, MessageHeader& responseHeader,
                        std::string& responseBody, std::size_t sendLimit);
