#include "MessageText.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace
{

constexpr std::size_t npos = std::string::npos;

/// A name and what must stand right before and right behind it.
struct Pattern {
    std::string_view before;
    std::string_view name;
    std::string_view after;

    std::size_t size() const { return before.size() + name.size() + after.size(); }

    /// The byte behind the name tells most places apart, and is compared without a call.
    bool standsAt(const char* at) const
    {
        const char* const nameAt = at + before.size();
        const char* const behind = nameAt + name.size();
        return *behind == after.front() && std::memcmp(nameAt, name.data(), name.size()) == 0 &&
               std::string_view(at, before.size()) == before &&
               std::string_view(behind, after.size()) == after;
    }
};

std::size_t findWithMemmem(std::string_view text, const Pattern& pattern, std::size_t from)
{
    const std::string joined =
        std::string(pattern.before).append(pattern.name).append(pattern.after);
    const void* hit = memmem(text.data() + from, text.size() - from, joined.data(), joined.size());
    if (hit == nullptr)
        return npos;
    return static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
}

/// Jumps to the first letter of the name, which is rarer in message text than the bracket before
/// it. In text made of that letter jumping would be slow, so memmem() takes over.
std::size_t find(std::string_view text, const Pattern& pattern, std::size_t from)
{
    constexpr int kMaxCandidates = 32;
    if (from > text.size() || pattern.size() > text.size() - from)
        return npos;
    const std::size_t lead = pattern.before.size();
    const std::size_t end = text.size() - pattern.size() + 1;
    for (int candidates = 0; candidates < kMaxCandidates && from < end && !pattern.name.empty();
         ++candidates) {
        const void* letter =
            std::memchr(text.data() + from + lead, pattern.name.front(), end - from);
        if (letter == nullptr)
            return npos;
        from = static_cast<std::size_t>(static_cast<const char*>(letter) - text.data()) - lead;
        if (pattern.standsAt(text.data() + from))
            return from;
        ++from;
    }
    return findWithMemmem(text, pattern, from);
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
    const Pattern pattern{"", name, "=\""};
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
    SegmentIterator walk(text, tag, from);
    return walk.next(out) ? walk.position() : npos;
}

bool SegmentIterator::next(std::string_view& segment)
{
    const std::size_t start = findStart();
    if (start == npos)
        return false;
    const std::size_t tagEnd = mText.find('>', start);
    if (tagEnd == npos)
        return false;

    std::size_t end = tagEnd + 1;
    if (mText[tagEnd - 1] != '/') {
        const Pattern endTag{"</", mTag, ">"};
        // It may share the ">", and stands nowhere before.
        const std::size_t from = std::max(start + 1, tagEnd - mTag.size() - 1) - 1;
        const std::size_t found = find(mText, endTag, from);
        if (found == npos)
            return false;
        end = found + endTag.size();
    }
    segment = mText.substr(start, end - start);
    mPosition = end;
    return true;
}

std::size_t SegmentIterator::findStart()
{
    if (!mNoneWithAttributes) {
        // Kept on purpose: peers count on a start tag with attributes being preferred to a bare
        // one that stands before it.
        const std::size_t start = find(mText, Pattern{"<", mTag, " "}, mPosition);
        if (start != npos)
            return start;
        mNoneWithAttributes = true;
    }
    return find(mText, Pattern{"<", mTag, ">"}, mPosition);
}

int textToInt(std::string_view text)
{
    int number = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc())
        return number;
    const long value = std::strtol(std::string(text).c_str(), nullptr, 10);
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

std::size_t findUnsendable(std::string_view text)
{
    return text.find_first_of(std::string_view("\"<>\0", 4));
}
