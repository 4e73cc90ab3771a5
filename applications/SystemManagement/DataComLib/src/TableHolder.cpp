#include "TableHolder.h"

#include "DataSet.h"
#include "DbgLine.h"
#include "table/TableCell.h"

#include <charconv>
#include <mutex>
#include <optional>

namespace
{

constexpr char kUnit[] = "TableHolder";

/// The row id, when the name is a decimal number from end to end: not "7x", " 7" or "+7".
std::optional<int> rowIdOf(const std::string& name)
{
    int id = 0;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data(), end, id);
    if (error != std::errc() || rest != end)
        return std::nullopt;
    return id;
}

template <typename Visit>
CellLookupResult visitCellOfNamedRow(DataTable& table, const std::string& row,
                                     const std::string& item, Visit visit)
{
    const auto rowId = rowIdOf(row);
    return rowId ? visitCell(&table, *rowId, item, visit) : CellLookupResult::NO_ROW;
}

bool hasAccess(const DataTable& table, const std::string& column, int access)
{
    const DataColumn* const found = table.getColumns(column);
    return found != nullptr && found->getAccess() == access;
}

} // namespace

Fcodes TableHolder::findDataSetWithComponent(std::string& dataset, const std::string& component)
{
    const DataTable* const table = findDataTable(component);
    if (table == nullptr)
        return DataHolder::findDataSetWithComponent(dataset, component);
    const DataSet* const dataSet = table->getDataSet();
    dataset = dataSet != nullptr ? dataSet->getId() : component;
    return FC_OK;
}

Fcodes TableHolder::getProperties(const std::string& dataset, const std::string& component,
                                  std::vector<std::string>& names)
{
    const DataTable* const table = findDataTable(component);
    if (table == nullptr)
        return DataHolder::getProperties(dataset, component, names);
    names = table->getColumnNames();
    return FC_OK;
}

Fcodes TableHolder::getInstances(const std::string& dataset, const std::string& component,
                                 std::vector<std::string>& names)
{
    const DataTable* const table = findDataTable(component);
    if (table == nullptr)
        return DataHolder::getInstances(dataset, component, names);
    const std::lock_guard guard(*table);
    for (auto row = table->getRowsBegin(); row != table->getRowsEnd(); ++row)
        names.push_back(std::to_string(row->first));
    return FC_OK;
}

Fcodes TableHolder::getTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, std::string& value,
                                 const std::string& key)
{
    DataTable* const table = findDataTable(component);
    if (table == nullptr)
        return DataHolder::getTextParam(dataset, component, property, value, key);
    const std::lock_guard guard(*table);
    if (hasAccess(*table, property, DataColumn::WO))
        return FC_ACCESS_DENIED;
    const CellLookupResult lookup = visitCellOfNamedRow(
        *table, key, property, [&](const DataItem& cell) { value = cell.getStrVal(); });
    if (lookup == CellLookupResult::NO_ROW)
        DBG_LOG(SEV_ERROR) << "getTextParam: No such rowId=" << key << " in table=" << component;
    if (lookup == CellLookupResult::NO_ITEM)
        DBG_LOG(SEV_ERROR) << "getTextParam: No such item=" << property << " in rowId=" << key
                           << " in table=" << component;
    return lookup == CellLookupResult::FOUND ? FC_OK : FC_NO_SUCH_NAME;
}

Fcodes TableHolder::setTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value,
                                 const std::string& key)
{
    DataTable* const table = findDataTable(component);
    if (table == nullptr)
        return DataHolder::setTextParam(dataset, component, property, value, key);
    const std::lock_guard guard(*table);
    if (hasAccess(*table, property, DataColumn::RO))
        return FC_ACCESS_DENIED;
    Fcodes result = FC_NO_SUCH_NAME; // not logged: the caller logs it
    visitCellOfNamedRow(*table, key, property,
                        [&](DataItem& cell) { result = cell.setValue(value); });
    return result;
}
