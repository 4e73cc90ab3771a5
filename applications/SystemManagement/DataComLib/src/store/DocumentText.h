#pragma once

// The text of a document in its file. Keys and texts may be any bytes, because names come from
// peers and files; the text gives them back as they are.

#include <cstddef>
#include <json/value.h>
#include <string>

/// What the library's stream output writes, unless that would change a key or a text: it escapes
/// what it takes for UTF-8. A document with a key or a text that is no UTF-8 is written with all
/// bytes as they are, and the same reader reads both. `expectedLength` bytes are reserved: a long
/// text that grows leaves holes in the heap as large as itself. Takes no lock, never logs.
std::string documentText(const Json::Value& document, std::size_t expectedLength = 0);
