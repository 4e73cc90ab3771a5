// The three finders over any text, and the messages that are read with them.

#include "MessageText.h"
#include "FuzzTarget.h"
#include "MessageCommand.h"
#include "MessageEvent.h"
#include "MessageHeader.h"

namespace
{

constexpr std::size_t npos = std::string::npos;
constexpr std::size_t kRepeatedSearchLimit = 4096; // bytes: their cost is the square of the length

/// The rules of getSegment() and getPropertyValue() in their plainest form.
std::size_t plainSegment(const std::string& text, std::size_t from, const std::string& tag,
                         std::string& out)
{
    std::size_t start = text.find("<" + tag + " ", from);
    if (start == npos)
        start = text.find("<" + tag + ">", from);
    const std::size_t tagEnd = text.find('>', start);
    if (tagEnd == npos)
        return npos;
    const std::string endTag = text[tagEnd - 1] == '/' ? ">" : "</" + tag + ">";
    std::size_t end = endTag == ">" ? tagEnd : text.find(endTag, start);
    if (end == npos)
        return npos;
    end += endTag.size();
    out = text.substr(start, end - start);
    return end;
}

std::size_t plainValue(const std::string& text, std::size_t from, const std::string& name,
                       std::string& out)
{
    const std::size_t found = text.find(name + "=\"", from);
    if (found == npos)
        return npos;
    const std::size_t start = found + name.size() + 2;
    const std::size_t end = text.find('"', start);
    if (end != npos)
        out = text.substr(start, end - start);
    return end;
}

void checkSegments(const std::string& text, const std::string& tag)
{
    SegmentIterator walk(text, tag);
    std::string_view walked;
    std::string found;
    std::string plain;
    for (std::size_t from = 0;; from = walk.position()) {
        const std::size_t end = getSegment(text, from, tag, found);
        require(end == plainSegment(text, from, tag, plain) && found == plain,
                "a search finds what the plain one finds", text);
        require(walk.next(walked) == (end != npos), "a walk ends with the last one", text);
        if (end == npos)
            return;
        require(end == walk.position() && found == walked, "a walk goes where searches go", text);
    }
}

void checkValues(const std::string& text, const std::string& name)
{
    std::string value;
    std::string plain;
    for (std::size_t from = 0; from != npos;) {
        const std::size_t at = getPropertyValue(text, from, name, value);
        require(at == plainValue(text, from, name, plain) && value == plain,
                "a value is what the plain search finds", text);
        from = at;
    }
}

void checkTokens(const std::string& text)
{
    for (const auto& [start, end] : {std::pair("ID=\"", "\""), {" ", " "}, {"\n", ">"}, {"", ""}}) {
        std::string token;
        const std::size_t at = getToken(text, 0, start, end, token);
        require(at == npos || text.compare(at - token.size(), token.size(), token) == 0,
                "a token stands before its end delimiter", text);
    }
}

template <typename Message>
void checkRoundTrip(const std::string& text)
{
    Message first;
    if (first.initFromString(text) != FC_OK)
        return;
    std::string printed;
    if (hasMarkupInQuotes(first.toString(printed)))
        return;
    Message second;
    std::string again;
    require(second.initFromString(printed) == FC_OK, "what is printed can be read", printed);
    require(second.toString(again) == printed, "what is read prints the same", printed);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = textOf(data, size);
    if (size <= kRepeatedSearchLimit)
        for (const char* tag : {"HEADER", "Parameter", "Row", "DataSet"}) {
            checkSegments(text, tag);
            checkValues(text, "ID");
        }
    checkTokens(text);
    textToInt(text);
    checkRoundTrip<MessageHeader>(text);
    checkRoundTrip<MessageEvent>(text);
    checkRoundTrip<MessageCommand>(text);
    return 0;
}
