#pragma once

// All that the client prints: a verb hands over its result as JSON values, and they are printed as
// a table, as a record or as JSON. One thread.

#include "Failure.h"
#include "Verb.h"

#include <json/value.h>
#include <span>
#include <string>

/// A column of a table, or a line of a record: the member of that name, and how it is headed.
struct Column {
    const char* title;
    const char* key;
    std::size_t width = 0; ///< at least; lines of a stream cannot know the widest
};

class Output
{
public:
    /// Without a verb when it is not known.
    Output(bool isJson, const Verb* verb);

    /// With --json everything goes into one document, printed by end() or fail(); what is
    /// added here is text's equal.
    bool isJson() const { return mIsJson; }
    Json::Value& document() { return mDocument; }

    bool isTerminal() const { return mColumns != 0; }

    // Results. What is too long for a terminal is cut there, and never in a pipe.

    /// An array of objects. In text a header and a row each: columns two blanks or more apart, no
    /// cell empty or with two blanks in a row.
    void table(const char* key, std::span<const Column> columns, const Json::Value& rows);

    /// The members of an object, in text a line each.
    void record(std::span<const Column> columns, const Json::Value& object);

    /// One line of a stream, written at once; in JSON an object on a line.
    void line(std::span<const Column> columns, const Json::Value& object);

    /// A text as it stands, which has to be printable, for documents of another form: it is not
    /// cut.
    void text(const std::string& lines);

    /// Words for whoever looks on, on the standard error.
    void note(const std::string& words) const;

    /// The exit status; EXIT_INTERNAL when not all could be written.
    int end();
    int fail(const Failure& failure, const std::string& asked);

private:
    void writeLines(std::string_view lines);
    void write(const std::string& bytes);
    void writeDocument(int exit);

    bool mIsJson;
    bool mIsStream; // in JSON an object a line
    std::string mVerb;
    Json::Value mDocument{Json::objectValue};
    std::size_t mColumns; // of the terminal; 0 elsewhere
    bool mIsColoured;
};

/// A text of many lines, each printable.
std::string printableLines(std::string_view text);

/// "on", in a table; "-" for nothing.
std::string cellText(const Json::Value& value);
