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

void checkSegments(const std::string& text, const std::string& tag)
{
    SegmentIterator walk(text, tag);
    std::string_view walked;
    std::string found;
    for (std::size_t from = 0; walk.next(walked); from = walk.position()) {
        const std::size_t end = getSegment(text, from, tag, found);
        require(end == walk.position(), "a walk goes where repeated searches go", text);
        require(found == walked, "a walk takes what repeated searches find", text);
        require(found.starts_with("<" + tag) &&
                    text.compare(end - found.size(), found.size(), found) == 0,
                "a segment ends at its position", text);
    }
    require(getSegment(text, walk.position(), tag, found) == npos, "a walk ends with the last one");
}

void checkValues(const std::string& text, const std::string& name)
{
    std::string value;
    std::size_t from = 0;
    for (std::size_t at; (at = getPropertyValue(text, from, name, value)) != npos; from = at) {
        require(at > from && at < text.size() && text[at] == '"', "a value ends at a quote", text);
        require(text.compare(at - value.size(), value.size(), value) == 0 &&
                    text[at - value.size() - 1] == '"' && value.find('"') == npos,
                "a value stands between two quotes", text);
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
