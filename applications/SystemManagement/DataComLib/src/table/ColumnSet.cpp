#include "table/ColumnSet.h"

#include <atomic>
#include <utility>

namespace
{

/// Frees a column, unless a caller has become its owner.
struct ColumnDeleter {
    int sets = 0; // that hold the column; tables under different locks may share one
    bool callerOwns = false;

    void operator()(DataColumn* column) const
    {
        if (!callerOwns)
            delete column;
    }
};

/// Columns are added by plain pointer; one that is owned already is shared.
std::shared_ptr<DataColumn> shareOwnership(DataColumn* column)
{
    auto shared = column->weak_from_this().lock();
    if (shared == nullptr)
        return {column, ColumnDeleter()};
    if (auto* const deleter = std::get_deleter<ColumnDeleter>(shared))
        deleter->callerOwns = false;
    return shared;
}

/// Counts one set more or less that holds the column; how many there are now.
int adjustSetCount(const std::shared_ptr<DataColumn>& column, int delta)
{
    auto* const deleter = std::get_deleter<ColumnDeleter>(column);
    return deleter == nullptr ? 0 : std::atomic_ref(deleter->sets).fetch_add(delta) + delta;
}

} // namespace

void ColumnSet::add(const std::string& name, DataColumn* column)
{
    if (column == nullptr)
        return;
    auto shared = shareOwnership(column);
    adjustSetCount(shared, 1);
    const auto old = take(name); // freed last: `name` may be its own
    mByName[name] = {std::move(shared), mList.insert(mList.end(), column)};
}

std::shared_ptr<DataColumn> ColumnSet::take(const std::string& name)
{
    const auto found = mByName.find(name);
    if (found == mByName.end())
        return nullptr;
    auto column = std::move(found->second.column);
    adjustSetCount(column, -1);
    mList.erase(found->second.listPosition);
    mByName.erase(found);
    return column;
}

DataColumn* ColumnSet::handOver(const std::shared_ptr<DataColumn>& column)
{
    if (adjustSetCount(column, 0) > 0)
        return nullptr;
    if (auto* const deleter = std::get_deleter<ColumnDeleter>(column))
        deleter->callerOwns = true;
    return column.get();
}

void ColumnSet::clear()
{
    for (const auto& [name, entry] : mByName)
        adjustSetCount(entry.column, -1);
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
