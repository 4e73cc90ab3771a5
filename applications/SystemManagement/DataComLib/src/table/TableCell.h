#pragma once

// The way to one cell: table, row, item. Whoever addresses cells by name goes it with withCell(),
// which works under the table's lock and tells at which step the way ended, so that each caller can
// report that in its own words.

#include "DataTable.h"

#include <mutex>
#include <string>

enum class CellLookup { FOUND, NO_TABLE, NO_ROW, NO_ITEM };

/// Calls `work(DataItem&)` on the cell under the lock of its table, which may be null. Returns what
/// is missing; NONE when the work has been done.
template <typename Work>
CellLookup withCell(DataTable* table, int rowId, const std::string& name, Work work)
{
    if (table == nullptr)
        return CellLookup::NO_TABLE;
    const std::lock_guard guard(*table);
    DataRow* row = table->getRows(rowId);
    if (row == nullptr)
        return CellLookup::NO_ROW;
    DataItem* item = row->getDataItem(name);
    if (item == nullptr)
        return CellLookup::NO_ITEM;
    work(*item);
    return CellLookup::FOUND;
}
