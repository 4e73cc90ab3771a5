#pragma once

// What the collector shows of a log entry: lines quote whatever peers send.

#include <string>
#include <string_view>

/// The entry's text with its lines as printableText() gives them, and with "  | " before each line
/// that has no header. Line ends and tabs stay.
std::string printableEntry(std::string_view text);
