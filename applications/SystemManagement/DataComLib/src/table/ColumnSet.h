#pragma once

// The columns of one table or object, by name and in the order in which they were added. It owns
// them together with the items that point at them: a column that has left the set is freed with the
// last such item, unless it is handed to a caller. Part of DataTable and DataObject, under their
// lock.

#include "DataColumn.h"

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

class ColumnSet
{
public:
    using List = std::list<DataColumn*>;
    enum class Order { BY_INSERTION, BY_NAME };

    explicit ColumnSet(Order order) : mOrder(order) {}

    ColumnSet(const ColumnSet&) = delete;
    ColumnSet& operator=(const ColumnSet&) = delete;
    ~ColumnSet() { clear(); }

    /// Takes the column over, in place of one that has the name. Null is ignored.
    void add(const std::string& name, DataColumn* column);

    /// Removes the column and returns the set's share in it; null when there is none.
    std::shared_ptr<DataColumn> take(const std::string& name);

    /// Makes the caller the owner of a column that has been taken out; null for null, and for one
    /// that another set still holds. Items that point at it no longer keep it alive.
    static DataColumn* handOver(const std::shared_ptr<DataColumn>& column);

    void clear();

    DataColumn* get(const std::string& name) const;

    /// The name under which the column is kept; null when it is not here.
    const std::string* nameOf(const DataColumn* column) const;

    std::size_t size() const { return mByName.size(); }
    List& list() { return mList; }
    const List& list() const { return mList; }

    /// Calls `visit(column)` for each column in this set's order.
    template <typename Visit>
    void each(Visit visit) const
    {
        if (mOrder == Order::BY_INSERTION) {
            for (DataColumn* column : mList)
                visit(*column);
        } else {
            for (const auto& [name, entry] : mByName)
                visit(*entry.column);
        }
    }

    /// The columns' own names, in this set's order.
    std::vector<std::string> names() const;

private:
    struct Entry {
        std::shared_ptr<DataColumn> column;
        List::iterator listPosition;
    };

    Order mOrder;
    std::map<std::string, Entry> mByName;
    List mList; // the same columns
};
