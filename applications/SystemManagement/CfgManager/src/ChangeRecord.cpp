#include "ChangeRecord.h"

#include <charconv>
#include <concepts>
#include <system_error>
#include <type_traits>

namespace
{

/// Writes and reads the same list of fields, so that the two cannot differ.
class FieldWriter
{
public:
    void field(const std::string& value)
    {
        mText += std::to_string(value.size()) + ':' + value + '\n';
    }

    template <std::integral Number>
    void field(Number value)
    {
        field(std::to_string(value));
    }

    void field(const std::optional<CatalogueRow>& row)
    {
        field(row ? static_cast<long>(row->size()) : -1L);
        if (!row)
            return;
        for (const auto& [property, value] : *row) {
            field(property);
            field(value);
        }
    }

    std::string take() { return std::move(mText); }

private:
    std::string mText;
};

class FieldReader
{
public:
    explicit FieldReader(std::string_view text) : mRest(text) {}

    bool good() const { return mGood; }
    bool atEnd() const { return mRest.empty(); }

    void field(std::string& value) { value = next(); }

    template <std::integral Number>
    void field(Number& value)
    {
        const std::string_view text = next();
        std::conditional_t<std::same_as<Number, bool>, int, Number> number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        mGood = mGood && error == std::errc() && end == text.data() + text.size();
        value = static_cast<Number>(number);
    }

    void field(std::optional<CatalogueRow>& row)
    {
        long count = -1;
        field(count);
        if (count >= 0)
            row.emplace();
        for (; count > 0 && mGood; --count) {
            std::string property;
            field(property);
            field((*row)[property]);
        }
    }

private:
    std::string_view next()
    {
        std::size_t length = 0;
        const auto [end, error] =
            std::from_chars(mRest.data(), mRest.data() + mRest.size(), length);
        const auto at = static_cast<std::size_t>(end - mRest.data()) + 1; // behind the colon
        mGood = mGood && error == std::errc() && at < mRest.size() && mRest[at - 1] == ':' &&
                length < mRest.size() - at && mRest[at + length] == '\n';
        if (!mGood)
            return {};
        const std::string_view value = mRest.substr(at, length);
        mRest.remove_prefix(at + length + 1);
        return value;
    }

    std::string_view mRest;
    bool mGood = true;
};

void visit(auto& fields, auto& record)
{
    auto kind = static_cast<int>(record.kind);
    fields.field(kind);
    if constexpr (requires { record.kind = ChangeRecord::Kind::SAVE; })
        record.kind = static_cast<ChangeRecord::Kind>(kind);
    fields.field(record.number);
    fields.field(record.name);
    fields.field(record.newName);
    fields.field(record.file);
    fields.field(record.answered);
    fields.field(record.boot);
    fields.field(record.kept);
    fields.field(record.moved.size);
    fields.field(record.moved.modified);
    fields.field(record.before);
    fields.field(record.after);
    fields.field(record.autoStartBefore);
    fields.field(record.autoStartAfter);
}

} // namespace

std::string toText(const std::vector<ChangeRecord>& records)
{
    FieldWriter writer;
    for (const ChangeRecord& record : records)
        visit(writer, record);
    return writer.take();
}

std::optional<std::vector<ChangeRecord>> readChangeRecords(std::string_view text)
{
    std::vector<ChangeRecord> records;
    for (FieldReader reader(text); !reader.atEnd();) {
        visit(reader, records.emplace_back());
        const auto kind = records.back().kind;
        if (!reader.good() || kind < ChangeRecord::Kind::SAVE ||
            kind > ChangeRecord::Kind::UNSTORED)
            return std::nullopt;
    }
    return records;
}
