#pragma once

// In what a table and an object differ: the key of a row, the order of the columns, the element
// names, and the log lines. These stand in DataTable.cpp and DataObject.cpp, so that each line
// carries the unit of its class.

#include "DataRow.h"
#include "Fcodes.h"
#include "table/ColumnSet.h"

#include <string>

class DataObject;
class DataTable;

struct TableTraits {
    using Key = int;
    using Owner = DataTable;
    static constexpr auto kColumnOrder = ColumnSet::Order::BY_INSERTION;

    static constexpr char kNameAttribute[] = "Name";
    static constexpr char kColumnsElement[] = "Columns";
    static constexpr char kStart[] = "\t<Table Name=\"";
    static constexpr char kColumnsStart[] = "\t\t<Columns>\n";
    static constexpr char kColumnsEnd[] = "\t\t</Columns>\n";
    static constexpr char kEnd[] = "\t</Table>\n";

    static int keyFromText(const std::string& id);
    static void assignKey(DataRow& row, int id);

    struct Log {
        static void enumValueReset(const std::string& name, const DataItem& item);
        static void intValueReset(const std::string& name, const DataItem& item);
        static void valueKept(const std::string& name, const DataItem& item);
        static void columnChanged(const std::string& table, const DataColumn& column);
        static void copyingRow(int id);
        static void copyingValue(int id, const DataColumn& column, const DataItem& value);
        static void nameMissing(const std::string& text);
        static void columnsMissing(const std::string& text);
        static void badColumn(Fcodes code);
        static void badRow(int id, Fcodes code);
        static void tooManyCells(std::size_t rows, std::size_t columns);
    };
};

struct ObjectTraits {
    using Key = std::string;
    using Owner = DataObject;
    static constexpr auto kColumnOrder = ColumnSet::Order::BY_NAME;

    static constexpr char kNameAttribute[] = "Type";
    static constexpr char kColumnsElement[] = "Parameters";
    static constexpr char kStart[] = "\t<Object Type=\"";
    static constexpr char kColumnsStart[] = "\t\t<Parameters>\n";
    static constexpr char kColumnsEnd[] = "\t\t</Parameters>\n";
    static constexpr char kEnd[] = "\t</Object>\n";

    static const std::string& keyFromText(const std::string& id) { return id; }
    static void assignKey(DataRow& row, const std::string& key);

    struct Log {
        static void enumValueReset(const std::string& name, const DataItem& item);
        static void intValueReset(const std::string& name, const DataItem& item);
        static void valueKept(const std::string& name, const DataItem& item);
        static void columnChanged(const std::string& object, const DataColumn& column);
        static void copyingRow(const std::string& key);
        static void copyingValue(const std::string& key, const DataColumn& column,
                                 const DataItem& value);
        static void nameMissing(const std::string& text);
        static void columnsMissing(const std::string& text);
        static void badColumn(Fcodes code);
        static void badRow(const std::string& key, Fcodes code);
        static void tooManyCells(std::size_t rows, std::size_t columns);
    };
};
