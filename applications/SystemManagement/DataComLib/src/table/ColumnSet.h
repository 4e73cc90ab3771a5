#pragma once

// The columns of one table or object, by name and in the order in which they came. It owns them; a
// column that leaves while items point at it lives on until the last of them lets go. Part of
// DataTable and DataObject, under their lock.

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

    /// Takes the column over, in place of the one that has the name. Null is ignored.
    void add(const std::string& name, DataColumn* column);

    /// Hands the column back; null when there is none.
    std::shared_ptr<DataColumn> take(const std::string& name);

    void clear();

    DataColumn* get(const std::string& name) const;

    /// The name under which the column is kept; null when it is not here.
    const std::string* nameOf(const DataColumn* column) const;

    std::size_t size() const { return mByName.size(); }
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

    /// The columns' names in this set's order.
    std::vector<std::string> names() const;

private:
    struct Entry {
        std::shared_ptr<DataColumn> column;
        List::iterator place;
    };

    Order mOrder;
    std::map<std::string, Entry> mByName;
    List mList; // the same columns
};
