#pragma once

// The system's only parser: three substring finders over message text, and their exact matching
// rules are part of the wire format. The text is untrusted and may be up to 70000 bytes of
// anything; no finder throws, and a walk over all elements of a text costs what the text's length
// costs.
//
// Positions are byte offsets; "not found" is std::string::npos, and then the output is untouched.
// Nothing is found from a position behind the text's end. Any thread may call.

#include <cstddef>
#include <string>
#include <string_view>

/// Finds the first element `tag` from `from` on, tags included; returns the position just behind
/// it. A start tag with attributes is preferred to a bare one, even to one that stands before it.
/// Elements of the same name do not nest, and the first ">" ends a start tag, also inside a value.
std::size_t getSegment(const std::string& text, std::size_t from, const std::string& tag,
                       std::string& out);

/// Finds the value of the attribute `name`; returns the position of its closing quote. There is no
/// word boundary: "ID" is also found inside `RowID="`. There is no escaping.
std::size_t getPropertyValue(const std::string& text, std::size_t from, const std::string& name,
                             std::string& out);

/// Finds the text between two delimiters; returns the position of the end delimiter. Each of " ",
/// "\t" and "\n" as a delimiter stands for any of the three. Between two delimiters in a row the
/// text is empty.
std::size_t getToken(const std::string& text, std::size_t from, const std::string& startDelimiter,
                     const std::string& endDelimiter, std::string& out);

/// getPropertyValue() and getSegment() without copies: `out` points into `text`.
std::size_t findPropertyValue(std::string_view text, std::size_t from, std::string_view name,
                              std::string_view& out);
std::size_t findSegment(std::string_view text, std::size_t from, std::string_view tag,
                        std::string_view& out);

/// Walks the elements `tag` of a text in the order in which repeated calls of getSegment() find
/// them. It remembers which form of start tag has run out, so that the walk stays linear. Text and
/// tag must outlive it.
class SegmentIterator
{
public:
    /// Begins at a position of the text.
    SegmentIterator(std::string_view text, std::string_view tag, std::size_t from = 0)
        : mText(text), mTag(tag), mPosition(from)
    {
    }

    /// Takes the next element; false when there is none, `segment` is then untouched.
    bool next(std::string_view& segment);

    /// The position just behind the last element taken; the starting position before that.
    std::size_t position() const { return mPosition; }

private:
    std::size_t findStart();

    std::string_view mText;
    std::string_view mTag;
    std::size_t mPosition;
    bool mNoneWithAttributes = false;
};

/// The conversion used for every decimal number on the wire: leading blanks, a sign, then digits
/// up to the first other character; no digits give 0. Values out of range are cut to the range.
int textToInt(std::string_view text);

/// The position of the first byte that no value, name or key on the wire can hold, because nothing
/// is escaped: a double quote, "<", ">" or NUL. npos when the text can be sent; any other byte,
/// single quotes, line ends and UTF-8 among them, arrives as it is. Senders refuse the others: no
/// operation of this library does it for them.
std::size_t findUnsendable(std::string_view text);
