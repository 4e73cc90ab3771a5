#include "TableHolder.h"

#include "DataColumn.h"
#include "DataRow.h"
#include "DataSet.h"
#include "DataTable.h"
#include "MessageText.h"

#include <mutex>

Fcodes TableHolder::findDataSetWithComponent(std::string& dataset, const std::string& component)
{
    if (findDataTable(component) == nullptr)
        return DataHolder::findDataSetWithComponent(dataset, component);
    const DataSet* const holds = findDataSetWithTable(component);
    dataset = holds != nullptr ? holds->getId() : component; // a table from elsewhere has none
    return FC_OK;
}

Fcodes TableHolder::getProperties(const std::string& dataset, const std::string& component,
                                  std::vector<std::string>& names)
{
    if (findDataTable(component) == nullptr)
        return DataHolder::getProperties(dataset, component, names);
    names = getColumnNames(component);
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
    if (findDataTable(component) == nullptr)
        return DataHolder::getTextParam(dataset, component, property, value, key);
    if (hasAccess(component, property, DataColumn::WO))
        return FC_ACCESS_DENIED;
    return getStringParam(component, textToInt(key), property, &value);
}

Fcodes TableHolder::setTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value,
                                 const std::string& key)
{
    if (findDataTable(component) == nullptr)
        return DataHolder::setTextParam(dataset, component, property, value, key);
    if (hasAccess(component, property, DataColumn::RO))
        return FC_ACCESS_DENIED;
    return setStringParam(component, textToInt(key), property, value);
}

bool TableHolder::hasAccess(const std::string& table, const std::string& column, int access)
{
    const DataTable* const found = findDataTable(table);
    const std::lock_guard guard(*found);
    const DataColumn* const described = found->getColumns(column);
    return described != nullptr && described->getAccess() == access;
}
