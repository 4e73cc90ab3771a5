#pragma once

// What the collector shows of a log entry. Lines quote whatever peers send: nothing in it may move
// a terminal's cursor, change what a viewer shows, or pass for an entry's first line.

#include <string>
#include <string_view>

/// The entry's text with control characters, characters that change the direction of the text or
/// break its lines, and bytes that are no UTF-8 as \xNN and \uNNNN, and with "  | " before each
/// line that has no header. Line ends and tabs stay.
std::string printableText(std::string_view text);
