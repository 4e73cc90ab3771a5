#pragma once

// A typed object: parameters, which are columns in the order of their names, and instances, which
// are rows by a key of text. It owns both; its maker owns the object. Any thread may call
// every operation, which runs under the object's recursive lock; work on an instance or an item
// goes inside lock(), `std::lock_guard guard(object)`.
//
// It is the keyed counterpart of DataTable: what is added belongs to the object, in place of one
// with the same name or key, which is freed; null is ignored. What is removed is handed back: drop
// the result and it is freed. The exception is replaceParameter(). What a look-up returns stays the
// object's. The operations of the accept/rollback cycle, of the text form and of the state are in
// KeyedRows.

#include "table/KeyedRows.h"

class DataObject;

extern template class KeyedRows<ObjectTraits>;

class DataObject : public KeyedRows<ObjectTraits>
{
public:
    /// An object without parameters and instances, STATE_ADDED.
    DataObject() = default;
    explicit DataObject(const std::string& name) : KeyedRows(name) {}

    /// The name of the object's type.
    std::string getName() const { return name(); }
    void setName(const std::string& name) { rename(name); }

    /// Parameters, by name; null when there is none. `name` is to be the column's own name. Adding
    /// one gives no items to the instances that exist; removing one frees its items in all of them.
    void addParameter(const std::string& name, DataColumn* column) { addColumn(name, column); }
    DataColumn* getParameter(const std::string& name) const { return findColumn(name); }
    std::shared_ptr<DataColumn> removeParameter(const std::string& name);
    std::shared_ptr<DataColumn> removeParameter(const DataColumn* column);

    /// As DataTable::replaceColumn(): the old column, or null, is the caller's to free, and must be
    /// kept for as long as an item points at it.
    DataColumn* replaceParameter(const std::string& name, DataColumn* column);

    /// The parameters' own names, in the order of the names under which they were added.
    std::vector<std::string> getParameters() const;

    /// Instances, by key, which may be empty; null when there is none. An instance that is added
    /// takes the key, and as its id the number with which the key begins. No state changes.
    DataRow* getInstance(const std::string& key) const { return findRow(key); }
    void addInstance(const std::string& key, DataRow* row) { addRow(key, row); }

    /// The keys in their order, those of instances marked deleted included.
    std::vector<std::string> getInstances() const;

    /// As DataTable::newRow() with an id.
    DataRow* newInstance(const std::string& key, const DataRow* templateRow, bool reuse);

    /// deleteInstance() marks the instance, and acceptChanges() frees it; FC_NO_SUCH_NAME when
    /// there is none. The others free at once; FC_OK also when there is none. No state changes with
    /// that, and isChanged() does not show it.
    Fcodes deleteInstance(const std::string& key) { return markRowDeleted(key); }
    Fcodes doDeleteInstance(const std::string& key) { return destroyRow(key); }
    Fcodes doDeleteAllInstances() { return destroyAllRows(); }

    /// As DataTable::update(), with parameters for columns and instances for rows.
    void update(const DataObject& reference, bool keepParameters, bool mergeParameters,
                bool copyInstances, bool reuse);
};
