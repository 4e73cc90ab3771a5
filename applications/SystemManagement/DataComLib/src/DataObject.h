#pragma once

// A typed object: parameters, which are columns in the order of their names, and instances, which
// are rows by a key of text. It owns both; who made the object owns it. Any thread may call every
// operation; take lock() around work on an instance or an item, `std::lock_guard guard(object)`.
//
// It is the keyed counterpart of DataTable: what is added belongs to the object, what is removed is
// handed back, and the cycle, text and state operations are those of KeyedRows.

#include "table/KeyedRows.h"

class DataObject;

/// In what an object differs from a table.
struct ObjectTraits {
    using Key = std::string;
    using Holder = DataObject;
    static constexpr auto kOrder = ColumnSet::Order::BY_NAME;

    static constexpr char kNameAttribute[] = "Type";
    static constexpr char kColumnsElement[] = "Parameters";
    static constexpr char kStart[] = "\t<Object Type=\"";
    static constexpr char kColumnsStart[] = "\t\t<Parameters>\n";
    static constexpr char kColumnsEnd[] = "\t\t</Parameters>\n";
    static constexpr char kEnd[] = "\t</Object>\n";

    static const std::string& keyOf(const std::string& id) { return id; }
    static void markKey(DataRow& row, const std::string& key);

    static void reportEnumLost(const std::string& name, const DataItem& item);
    static void reportIntLost(const std::string& name, const DataItem& item);
    static void reportKept(const std::string& name, const DataItem& item);
    static void reportColumnChanged(const std::string& object, const DataColumn& column);
    static void reportRowCopied(const std::string& key);
    static void reportValueCopied(const std::string& key, const DataColumn& column,
                                  const DataItem& value);
    static void reportNoName(const std::string& text);
    static void reportNoColumns(const std::string& text);
    static void reportBadColumn(Fcodes code);
    static void reportBadRow(const std::string& key, Fcodes code);
    static void reportTooManyCells(std::size_t rows, std::size_t columns);
};

extern template class KeyedRows<ObjectTraits>;

class DataObject : public KeyedRows<ObjectTraits>
{
public:
    DataObject() = default;
    explicit DataObject(const std::string& name) : KeyedRows(name) {}

    /// The name of the object's type.
    std::string getName() const { return name(); }
    void setName(const std::string& name) { rename(name); }

    /// Parameters. `name` is to be the column's own name. Adding one gives no items to instances
    /// that exist already; removing one takes its items out of all of them.
    void addParameter(const std::string& name, DataColumn* column) { addColumn(name, column); }
    DataColumn* getParameter(const std::string& name) const { return findColumn(name); }
    std::shared_ptr<DataColumn> removeParameter(const std::string& name);
    std::shared_ptr<DataColumn> removeParameter(const DataColumn* column);

    /// As DataTable::replaceColumn().
    std::shared_ptr<DataColumn> replaceParameter(const std::string& name, DataColumn* column);

    std::vector<std::string> getParameters() const;

    /// Instances. The key is what an instance's text shows; the row's id is the number it begins
    /// with.
    DataRow* getInstance(const std::string& key) const { return findRow(key); }
    void addInstance(const std::string& key, DataRow* row) { addRow(key, row); }
    std::vector<std::string> getInstances() const;

    /// As DataTable::newRow() with an id.
    DataRow* newInstance(const std::string& key, const DataRow* pattern, bool reuse);

    /// deleteInstance() marks the instance, and acceptChanges() removes it; FC_NO_SUCH_NAME when
    /// there is none. The others remove at once; FC_OK in any case.
    Fcodes deleteInstance(const std::string& key) { return markRowDeleted(key); }
    Fcodes doDeleteInstance(const std::string& key) { return destroyRow(key); }
    Fcodes doDeleteAllInstances() { return destroyAllRows(); }

    /// As DataTable::update(), with parameters for columns and instances for rows.
    void update(const DataObject& reference, bool keepParameters, bool mergeParameters,
                bool copyInstances, bool reuse);
};
