#pragma once

// The store of named datasets: JSON documents of components, instances and typed properties, with a
// committed tree and a tree of pending changes. Any thread may call; each operation is one step
// under the store's lock, and lock()/unlock() group several into one. docs/datasets.md explains
// documents, types and conditions.
//
// Addressing: dataset name, component name, property name, then the instance: an index from 0 into
// an indexed component, a non-empty key of a keyed one, or kSingleInstance, the empty key.
// No name is reserved; a negative index is one that is missing.
//
// Results, unless said otherwise: FC_OK; FC_NO_SUCH_NAME when a step of the address is missing;
// FC_WRONG_TYPE when a type or the shape of the document forbids it; FC_BAD_VALUE when an
// enumeration lacks the value. On failure nothing is changed and no output is written. Names, texts
// and lists are copied in both directions; nothing throws.

#include "Fcodes.h"

#include <json/value.h>
#include <list>
#include <string>
#include <vector>

/// The key of a component's single instance.
inline const std::string kSingleInstance;

class IDataSets
{
public:
    /// Groups calls into one step: `const std::lock_guard guard(*store);`. While a thread holds the
    /// lock, every operation but the isChanged...() queries waits in the other threads. Recursive:
    /// as many unlock() as lock(), by the same thread; unlock() without the lock does nothing.
    void lock() { doLock(); }
    void unlock() { doUnlock(); }

    /// The errno value of the latest storeDataSet() to that path, as it was written there; 0 when
    /// it reached the disk or none was tried. It stays until a store of the same or a later state
    /// to that path succeeds. Waits for a store that is under way.
    int lastStoreError(const std::string& path) { return doLastStoreError(path); }

    /// Loads a document from a file, in the first form under the name in its member "dataset", and
    /// replaces a dataset of that name; what is pending for it stays. FC_NO_SUCH_NAME when the file
    /// cannot be opened, is no regular file or has no such member; FC_UNAVAILABLE when it cannot be
    /// read, is not JSON or its name is an array or object.
    virtual Fcodes loadDataSet(const std::string& path) = 0;
    virtual Fcodes loadDataSet(const std::string& dataset, const std::string& path) = 0;
    /// Writes the committed document to the file, which holds the old or the new one at every
    /// instant, and waits for the disk. Keys and texts of any bytes come back when it is loaded.
    /// FC_NO_SUCH_NAME for an unknown dataset. FC_OK also when the file could not be written:
    /// lastStoreError() says so, and the log when the cause is another than the last time.
    virtual Fcodes storeDataSet(const std::string& dataset, const std::string& path) = 0;

    /// Makes an empty dataset in place of one that there may be, or removes one; what is pending
    /// stays. Always FC_OK, also when there was none to remove.
    virtual Fcodes addDataSet(const std::string& dataset) = 0;
    virtual Fcodes deleteDataSet(const std::string& dataset) = 0;

    /// Brings `src` into line with `ref`: keepAbsent keeps what `ref` lacks, mergeProperties takes
    /// the property definitions of `ref` and completes instances with defaults, replaceInstances
    /// takes the instances of `ref`. It works on the committed tree at once; what is pending stays.
    /// FC_NO_SUCH_NAME when `src` or the components of either are
    /// missing; FC_UNAVAILABLE when the components of `ref` are malformed. After FC_WRONG_TYPE, for
    /// a malformed component of `src`, all other components have been updated.
    virtual Fcodes updateDataSet(const std::string& src, const std::string& ref, bool keepAbsent,
                                 bool mergeProperties, bool replaceInstances) = 0;

    /// The first dataset, in the order of names, that has the component.
    virtual Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) = 0;

    /// addComponent() makes an empty component, loadComponent() one from JSON text; either replaces
    /// a component of that name and makes a missing dataset. FC_WRONG_TYPE when the dataset is no
    /// document; loadComponent(): FC_UNAVAILABLE for a text that is not JSON, and standard output
    /// says why. When a derived store's addDataSet() fails, addComponent() returns FC_NO_SUCH_NAME
    /// and leaves the store locked once more: the caller unlocks it.
    virtual Fcodes addComponent(const std::string& dataset, const std::string& component) = 0;
    virtual Fcodes deleteComponent(const std::string& dataset, const std::string& component) = 0;
    virtual Fcodes loadComponent(const std::string& dataset, const std::string& component,
                                 const std::string& text) = 0;

    /// The number of keyed or indexed instances; FC_NO_SUCH_NAME for a component without
    /// "instances".
    virtual Fcodes getComponentSize(const std::string& dataset, const std::string& component,
                                    int& size) = 0;

    /// Add instances, in the committed tree at once, with every property at its "default", or at
    /// the text "0" without one. addInstance() replaces an instance of that key; appendInstance()
    /// writes the index of the new one. FC_WRONG_TYPE: by key to an indexed component, or the
    /// reverse.
    virtual Fcodes addInstance(const std::string& dataset, const std::string& component,
                               const std::string& key) = 0;
    virtual Fcodes appendInstance(const std::string& dataset, const std::string& component,
                                  int& index) = 0;

    /// Remove instances from the committed tree at once; property definitions stay. After a removal
    /// by index later instances move one down, while pending values stay at their indexes.
    virtual Fcodes removeInstance(const std::string& dataset, const std::string& component,
                                  int index) = 0;
    virtual Fcodes removeInstance(const std::string& dataset, const std::string& component,
                                  const std::string& key) = 0;
    virtual Fcodes clearComponent(const std::string& dataset, const std::string& component) = 0;

    /// Whether the committed tree has the instance; false for one that is null, and under the empty
    /// key for anything but an object.
    virtual bool hasInstance(const std::string& dataset, const std::string& component,
                             const std::string& key) = 0;
    virtual bool hasInstance(const std::string& dataset, const std::string& component,
                             int index) = 0;

    /// getProperties() replaces the list by the names of the properties, ascending; FC_NO_SUCH_NAME
    /// when the component has no definitions. getInstances() appends to the list: keys ascending,
    /// indexes in decimal, or one empty text for a single instance; FC_NO_SUCH_NAME when the
    /// component has no instances of any shape.
    virtual Fcodes getProperties(const std::string& dataset, const std::string& component,
                                 std::vector<std::string>& names) = 0;
    virtual Fcodes getInstances(const std::string& dataset, const std::string& component,
                                std::vector<std::string>& names) = 0;

    /// The instances, named as by getInstances(), whose committed value or key meets the condition;
    /// empty also for an unknown address or condition. With an integer operand only the conditions
    /// "(Num) Less than" and "(Num) Greater than" select.
    virtual std::vector<std::string> getInstancesByParameter(const std::string& dataset,
                                                             const std::string& component,
                                                             const std::string& property,
                                                             const std::string& condition,
                                                             const std::string& operand) = 0;
    virtual std::vector<std::string> getInstancesByParameter(const std::string& dataset,
                                                             const std::string& component,
                                                             const std::string& property,
                                                             const std::string& condition,
                                                             int operand) = 0;
    virtual std::vector<std::string> getInstancesByKey(const std::string& dataset,
                                                       const std::string& component,
                                                       const std::string& condition,
                                                       const std::string& operand) = 0;

    /// Members of a property's definition as texts, empty where it has none; `values` is replaced
    /// by the values of an enumeration. getComponentPropertyDefault(): FC_NO_SUCH_NAME also for a
    /// definition without "default".
    virtual Fcodes getComponentProperty(const std::string& dataset, const std::string& component,
                                        const std::string& property, std::string& access,
                                        std::string& type, std::string& defaultValue,
                                        std::list<std::string>& values) = 0;
    virtual Fcodes getComponentPropertyDefault(const std::string& dataset,
                                               const std::string& component,
                                               const std::string& property,
                                               std::string& defaultValue) = 0;

    /// Committed values, converted as the JSON library does (2.5 to 2, null to 0, false or the
    /// empty text); FC_WRONG_TYPE when there is no conversion.
    virtual Fcodes getIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int& value, int index) = 0;
    virtual Fcodes getIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int& value, const std::string& key) = 0;
    virtual Fcodes getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value, int index) = 0;
    virtual Fcodes getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value,
                                const std::string& key) = 0;
    virtual Fcodes getBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool& value, int index) = 0;
    virtual Fcodes getBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool& value,
                                const std::string& key) = 0;

    /// The pending value, or the committed one where nothing is pending; converted likewise.
    virtual Fcodes getNewIntParam(const std::string& dataset, const std::string& component,
                                  const std::string& property, int& value, int index) = 0;
    virtual Fcodes getNewIntParam(const std::string& dataset, const std::string& component,
                                  const std::string& property, int& value,
                                  const std::string& key) = 0;
    virtual Fcodes getNewTextParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, std::string& value, int index) = 0;
    virtual Fcodes getNewTextParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, std::string& value,
                                   const std::string& key) = 0;
    virtual Fcodes getNewBoolParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, bool& value, int index) = 0;
    virtual Fcodes getNewBoolParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, bool& value,
                                   const std::string& key) = 0;

    /// Pending writes: they wait for commit() or rollback(). The property must exist in the
    /// committed instance; its definition's type and its present value's must take the value, else
    /// FC_WRONG_TYPE. A text is converted for an integer (prefixes 0x and 0 count, no number is 0,
    /// the range is kept) or a boolean ("true" or false). "access" is not checked.
    virtual Fcodes setIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int value, int index) = 0;
    virtual Fcodes setIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int value, const std::string& key) = 0;
    virtual Fcodes setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value,
                                int index) = 0;
    virtual Fcodes setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value,
                                const std::string& key) = 0;
    virtual Fcodes setBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool value, int index) = 0;
    virtual Fcodes setBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool value,
                                const std::string& key) = 0;

    /// Committed writes, under the same rules: they take effect at once and drop what is pending
    /// for the property.
    virtual Fcodes initIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int value, int index) = 0;
    virtual Fcodes initIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int value, const std::string& key) = 0;
    virtual Fcodes initTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value,
                                 int index) = 0;
    virtual Fcodes initTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value,
                                 const std::string& key) = 0;
    virtual Fcodes initBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool value, int index) = 0;
    virtual Fcodes initBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool value,
                                 const std::string& key) = 0;

    /// Working copies. Touching replaces what is pending with a full copy of the committed data,
    /// untouching drops it. After untouchComponent() the dataset still counts as changed until
    /// commit(), rollback() or untouchDataSet(). An unknown name does nothing.
    virtual void touchDataSet(const std::string& dataset) = 0;
    virtual void untouchDataSet(const std::string& dataset) = 0;
    virtual void touchComponent(const std::string& dataset, const std::string& component) = 0;
    virtual void untouchComponent(const std::string& dataset, const std::string& component) = 0;

    /// Whether something is pending, equal to the committed value or not. These do not wait for
    /// lock(): a caller that needs several consistent answers takes it.
    virtual bool isChanged() = 0;
    virtual bool isChangedDataSet(const std::string& dataset) = 0;
    virtual bool isChangedComponent(const std::string& dataset, const std::string& component) = 0;
    virtual bool isChangedInstance(const std::string& dataset, const std::string& component,
                                   const std::string& key) = 0;
    virtual bool isChangedInstance(const std::string& dataset, const std::string& component,
                                   int index) = 0;
    virtual bool isChangedProperty(const std::string& dataset, const std::string& component,
                                   const std::string& property, const std::string& key) = 0;
    virtual bool isChangedProperty(const std::string& dataset, const std::string& component,
                                   const std::string& property, int index) = 0;

    /// Whole JSON requests, see docs/json-requests.md. The reply replaces what the caller's value
    /// held, also on failure, and has the result as "fcode" and "description"; it may be the
    /// request's own value. getParams() and the fetches answer what they can and return the last
    /// failure; setParams() writes all values, pending, or none. For ordinary documents the fetches
    /// answer empty lists and add a member of the component's name to the committed document (use
    /// getProperties() and getInstances() for names); a component without the member that is
    /// fetched is left out, with FC_OK. FC_BODY_ERROR for a malformed request, FC_ACCESS_DENIED for
    /// a property with access "RO", FC_UNAVAILABLE after an exception of any type.
    virtual Fcodes setParams(const Json::Value& request, Json::Value& reply) = 0;
    virtual Fcodes getParams(const Json::Value& request, Json::Value& reply) = 0;
    virtual Fcodes fetchPropertyNames(const Json::Value& request, Json::Value& reply) = 0;
    virtual Fcodes fetchComponentKeys(const Json::Value& request, Json::Value& reply) = 0;

    /// End a change. Always FC_OK: a value that no longer fits the committed document is not
    /// committed, and logged. After commitComponent() and rollbackComponent() the dataset still
    /// counts as changed until commit(), rollback() or untouchDataSet().
    virtual Fcodes commit() = 0;
    virtual Fcodes commitComponent(const std::string& dataset, const std::string& component) = 0;
    virtual Fcodes rollback() = 0;
    virtual Fcodes rollbackComponent(const std::string& dataset, const std::string& component) = 0;

    virtual ~IDataSets() = default; // its place in the order of the operations

    /// Drop what is pending for one property; instance, component and dataset still count as
    /// changed, as above. An unknown name does nothing.
    virtual void untouchProperty(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& key) = 0;
    virtual void untouchProperty(const std::string& dataset, const std::string& component,
                                 const std::string& property, int index) = 0;

    /// Hooks that getParams() calls on its thread, under the lock, just before it reads; a derived
    /// store brings its data up to date in them and may call any operation. They are called for
    /// what the committed document has already: a hook cannot add the component, row or value that
    /// is asked for. A request for everything calls those of dataset and components alone, one for
    /// whole rows none of values. Results are ignored; an exception ends the request with
    /// FC_UNAVAILABLE.
    virtual Fcodes onGetDataset(const std::string& dataset) = 0;
    virtual Fcodes onGetComponent(const std::string& dataset, const std::string& component) = 0;
    virtual Fcodes onGetComponentEntry(const std::string& dataset, const std::string& component,
                                       const std::string& key) = 0;
    virtual Fcodes onGetComponentEntry(const std::string& dataset, const std::string& component,
                                       int index) = 0;
    virtual Fcodes onGetComponentValue(const std::string& dataset, const std::string& component,
                                       const std::string& property, const std::string& key) = 0;
    virtual Fcodes onGetComponentValue(const std::string& dataset, const std::string& component,
                                       const std::string& property, int index) = 0;

    /// getInstances() until the names listed, each with `perName` bytes more, exceed `limit` bytes
    /// together; the others may be missing.
    Fcodes listInstances(const std::string& dataset, const std::string& component,
                         std::vector<std::string>& names, std::size_t perName, std::size_t limit)
    {
        return doListInstances(dataset, component, names, perName, limit);
    }

private:
    // Last, so that the operations keep their places in the virtual table. A store without threads
    // needs no lock, and one without files never fails to write one.
    virtual void doLock() {}
    virtual void doUnlock() {}
    virtual int doLastStoreError(const std::string&) { return 0; }
    virtual Fcodes doListInstances(const std::string& dataset, const std::string& component,
                                   std::vector<std::string>& names, std::size_t /*perName*/,
                                   std::size_t /*limit*/)
    {
        return getInstances(dataset, component, names);
    }
};
