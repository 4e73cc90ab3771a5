#pragma once

// What all fuzz targets share. A target takes any bytes, and aborts where an invariant is broken.

#include "DbgPrintClient.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

inline void require(bool holds, const char* invariant, const std::string& context = {})
{
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s\n%s\n", invariant, context.c_str());
    std::abort();
}

/// The input as text. Log lines are off: no collector reads them here.
inline std::string textOf(const std::uint8_t* data, std::size_t size)
{
    gDbgLevel = 5;
    return std::string(reinterpret_cast<const char*>(data), size);
}

/// The formats have no escaping: a text with one of these between quotes is not read back.
inline bool hasMarkupInQuotes(const std::string& text)
{
    bool inQuotes = false;
    for (const char c : text) {
        inQuotes ^= c == '"';
        if (inQuotes && (c == '<' || c == '>' || c == '='))
            return true;
    }
    return false;
}
