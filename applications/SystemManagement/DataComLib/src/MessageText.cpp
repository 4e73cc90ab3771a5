#include "MessageText.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace
{

constexpr std::size_t npos = std::string::npos;

/// std::string_view::find compares at every candidate first byte, and message text is full of '<'.
std::size_t find(std::string_view text, std::string_view pattern, std::size_t from)
{
    if (from > text.size())
        return npos;
    const void* hit =
        memmem(text.data() + from, text.size() - from, pattern.data(), pattern.size());
    if (hit == nullptr)
        return npos;
    return static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
}

bool isBlankDelimiter(std::string_view delimiter)
{
    return delimiter == " " || delimiter == "\t" || delimiter == "\n";
}

std::size_t findDelimiter(std::string_view text, std::string_view delimiter, std::size_t from)
{
    return isBlankDelimiter(delimiter) ? text.find_first_of(" \t\n", from)
                                       : text.find(delimiter, from);
}

} // namespace

std::size_t getSegment(const std::string& text, std::size_t from, const std::string& tag,
                       std::string& out)
{
    std::string_view segment;
    const std::size_t end = findSegment(text, from, tag, segment);
    if (end != npos)
        out = std::string(segment);
    return end;
}

std::size_t getPropertyValue(const std::string& text, std::size_t from, const std::string& name,
                             std::string& out)
{
    std::string_view value;
    const std::size_t end = findPropertyValue(text, from, name, value);
    if (end != npos)
        out = std::string(value);
    return end;
}

std::size_t getToken(const std::string& text, std::size_t from, const std::string& startDelimiter,
                     const std::string& endDelimiter, std::string& out)
{
    const std::size_t delimiter = findDelimiter(text, startDelimiter, from);
    if (delimiter == npos)
        return npos;
    const std::size_t start = delimiter + startDelimiter.size();
    const std::size_t end = findDelimiter(text, endDelimiter, start);
    if (end == npos)
        return npos;
    out = text.substr(start, end - start);
    return end;
}

std::size_t findPropertyValue(std::string_view text, std::size_t from, std::string_view name,
                              std::string_view& out)
{
    std::string pattern;
    pattern.reserve(name.size() + 2);
    pattern.append(name).append("=\"");
    const std::size_t found = find(text, pattern, from);
    if (found == npos)
        return npos;
    const std::size_t start = found + pattern.size();
    const std::size_t end = text.find('"', start);
    if (end == npos)
        return npos;
    out = text.substr(start, end - start);
    return end;
}

std::size_t findSegment(std::string_view text, std::size_t from, std::string_view tag,
                        std::string_view& out)
{
    SegmentWalk walk(text, tag, from);
    return walk.next(out) ? walk.position() : npos;
}

SegmentWalk::SegmentWalk(std::string_view text, std::string_view tag, std::size_t from)
    : mText(text), mPosition(from)
{
    mWithAttributes.append("<").append(tag).append(" ");
    mBare.append("<").append(tag).append(">");
    mEnd.append("</").append(tag).append(">");
}

bool SegmentWalk::next(std::string_view& segment)
{
    const std::size_t start = findStart();
    if (start == npos)
        return false;
    const std::size_t tagEnd = mText.find('>', start);
    if (tagEnd == npos)
        return false;

    std::size_t end = tagEnd + 1;
    if (mText[tagEnd - 1] != '/') {
        const std::size_t endTag = find(mText, mEnd, start);
        if (endTag == npos)
            return false;
        end = endTag + mEnd.size();
    }
    segment = mText.substr(start, end - start);
    mPosition = end;
    return true;
}

std::size_t SegmentWalk::findStart()
{
    if (!mNoneWithAttributes) {
        // Kept on purpose: peers count on a start tag with attributes being preferred to a bare
        // one that stands before it.
        const std::size_t start = find(mText, mWithAttributes, mPosition);
        if (start != npos)
            return start;
        mNoneWithAttributes = true;
    }
    return find(mText, mBare, mPosition);
}

int textToInt(const std::string& text)
{
    const long value = std::strtol(text.c_str(), nullptr, 10);
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}
