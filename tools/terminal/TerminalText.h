#pragma once

// What the tools show of texts that peers, files and users wrote: nothing in them may move a
// terminal's cursor, change what a viewer shows, or pass for another line. No state; any thread.

#include <cstddef>
#include <string>
#include <string_view>

/// The text with control characters, characters that change the direction of the text or break its
/// lines, and bytes that are no UTF-8 as \xNN and \uNNNN. Tabs stay where `keepTabs`.
std::string printableText(std::string_view text, bool keepTabs = false);

/// The columns that a printable text takes on a terminal.
std::size_t columnsOf(std::string_view text);

/// A printable text in at most so many columns (at least 1); what is cut ends in "…".
std::string cutToColumns(std::string_view text, std::size_t columns);

/// The text with U+FFFD for each byte that is no UTF-8.
std::string toUtf8(std::string_view text);
