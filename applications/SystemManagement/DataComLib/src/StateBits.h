#pragma once

// The change-state bits of items, rows, tables, objects and data sets. A state of 0 is clean:
// nothing waits for acceptChanges() or rollbackChanges().

/// Joined with `|`; DataItem::getState() and its like return them as a number.
enum StateBits : unsigned {
    STATE_CLEAN = 0,
    STATE_ADDED = 1,    ///< new and not yet accepted
    STATE_DELETED = 2,  ///< marked for deletion; acceptChanges() removes it
    STATE_MODIFIED = 4, ///< holds an uncommitted change
};
