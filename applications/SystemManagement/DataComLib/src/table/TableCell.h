#pragma once

// Finds one cell by table, row and item. It logs nothing, since each operation on a cell has log
// texts of its own: the result says what is missing.

#include "DataTable.h"

#include <mutex>
#include <string>

enum class CellLookupResult { FOUND, NO_TABLE, NO_ROW, NO_ITEM };

/// Calls `visit(DataItem&)` on the cell, under the lock of its table, which may be null. It has
/// been called when the result is FOUND.
template <typename Visit>
CellLookupResult visitCell(DataTable* table, int rowId, const std::string& item, Visit visit)
{
    if (table == nullptr)
        return CellLookupResult::NO_TABLE;
    const std::lock_guard guard(*table);
    DataRow* const row = table->getRows(rowId);
    if (row == nullptr)
        return CellLookupResult::NO_ROW;
    DataItem* const cell = row->getDataItem(item);
    if (cell == nullptr)
        return CellLookupResult::NO_ITEM;
    visit(*cell);
    return CellLookupResult::FOUND;
}
