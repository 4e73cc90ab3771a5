// The records of changes under way: what is read of any text is written so that it reads the same.

#include "FuzzTarget.h"
#include "JournalFiles.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = textOf(data, size);
    std::uint64_t write = 0;
    readJournalHalf(text, write);
    const auto records = readChangeRecords(text);
    if (!records)
        return 0;
    const std::string half = journalHalf(7, toText(*records)) + text;
    const auto read = readJournalHalf(half, write);
    require(read.has_value() && write == 7, "what is written is read", text);
    const auto again = readChangeRecords(*read);
    require(again && toText(*again) == *read, "records read the same again", text);
    return 0;
}
