#pragma once

// The way to one cell: table, row, item. Whoever addresses cells by name goes it with workOnCell(),
// which works under the table's lock and tells at which step the way ended, so that each caller can
// report that in its own words.

#include "DataTable.h"

#include <mutex>
#include <string>

enum class CellPart { NONE, TABLE, ROW, ITEM };

/// Calls `work(DataItem&)` on the cell under the lock of its table, which may be null. Returns what
/// is missing; NONE when the work has been done.
template <typename Work>
CellPart workOnCell(DataTable* table, int rowId, const std::string& name, Work work)
{
    if (table == nullptr)
        return CellPart::TABLE;
    const std::lock_guard guard(*table);
    DataRow* row = table->getRows(rowId);
    if (row == nullptr)
        return CellPart::ROW;
    DataItem* item = row->getDataItem(name);
    if (item == nullptr)
        return CellPart::ITEM;
    work(*item);
    return CellPart::NONE;
}
