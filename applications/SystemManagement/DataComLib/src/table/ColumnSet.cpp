#include "table/ColumnSet.h"

#include <utility>

namespace
{

/// Columns come in by plain pointer; one that has an owner already is shared with it.
std::shared_ptr<DataColumn> own(DataColumn* column)
{
    if (auto owned = column->weak_from_this().lock())
        return owned;
    return std::shared_ptr<DataColumn>(column);
}

} // namespace

void ColumnSet::add(const std::string& name, DataColumn* column)
{
    if (column == nullptr)
        return;
    auto owned = own(column);
    const auto old = take(name); // to the end: `name` may be its own
    mByName[name] = {std::move(owned), mList.insert(mList.end(), column)};
}

std::shared_ptr<DataColumn> ColumnSet::take(const std::string& name)
{
    const auto found = mByName.find(name);
    if (found == mByName.end())
        return nullptr;
    auto column = std::move(found->second.column);
    mList.erase(found->second.place);
    mByName.erase(found);
    return column;
}

void ColumnSet::clear()
{
    mList.clear();
    mByName.clear();
}

DataColumn* ColumnSet::get(const std::string& name) const
{
    const auto found = mByName.find(name);
    return found == mByName.end() ? nullptr : found->second.column.get();
}

const std::string* ColumnSet::nameOf(const DataColumn* column) const
{
    for (const auto& [name, entry] : mByName)
        if (entry.column.get() == column)
            return &name;
    return nullptr;
}

std::vector<std::string> ColumnSet::names() const
{
    std::vector<std::string> result;
    result.reserve(size());
    each([&](const DataColumn& column) { result.push_back(column.getName()); });
    return result;
}
