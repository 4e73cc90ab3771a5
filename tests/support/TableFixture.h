#pragma once

// What the tests of the table model share: a column in one line, a sample table, and a look at what
// has been logged.

#include "DataTable.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

/// A column for a table or an object to own; the values of an enumeration count from 0.
inline DataColumn* column(const std::string& name, int type, int defVal = 0,
                          const std::vector<std::string>& values = {})
{
    auto* made = new DataColumn;
    made->init(name, DataColumn::RW, type);
    made->setDefVal(defVal);
    for (const std::string& value : values)
        made->addValue(static_cast<int>(&value - values.data()), value);
    return made;
}

/// The text of a column, row, table, object or data set.
template <typename Unit>
std::string textOf(Unit& unit)
{
    std::string out = "old";
    return unit.toString(out);
}

class TableFixture : public testing::Test
{
protected:
    using Names = std::vector<std::string>;

    TableFixture()
    {
        table.addColumns("Limit", column("Limit", DataColumn::INT, 40));
        table.addColumns("Mode", column("Mode", DataColumn::ENUM, 1, {"Off", "On"}));
    }

    DataItem& cell(int row, const std::string& name)
    {
        return *table.getRows(row)->getDataItem(name);
    }

    void addCleanRows(const std::vector<int>& ids)
    {
        for (const int id : ids)
            table.newRow(id, nullptr, false);
        table.acceptChanges();
    }

    std::vector<int> rows() const
    {
        std::vector<int> ids;
        for (auto row = table.getRowsBegin(); row != table.getRowsEnd(); ++row)
            ids.push_back(row->first);
        return ids;
    }

    void expectLogged(const Names& entries)
    {
        EXPECT_EQ(entries, log.entries());
        log.clear();
    }

    LogCapture log;
    DataTable table{"Sensors"};
};
