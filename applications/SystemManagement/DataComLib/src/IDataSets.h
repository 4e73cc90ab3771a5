#pragma once

// The store of named datasets: JSON documents of components, instances and typed properties, with a
// committed tree and a tree of pending changes. Any thread may call; each operation is one step,
// and lock()/unlock() of the concrete store group several into one.
//
// Addressing: dataset name, component name, property name, then the instance: an index into an
// indexed component, a non-empty key of a keyed one, or the empty key for a single instance.
//
// Results, unless said otherwise: FC_OK; FC_NO_SUCH_NAME when a step of the address is missing;
// FC_WRONG_TYPE when type or shape forbid it; FC_BAD_VALUE when an enumeration lacks the value;
// FC_UNAVAILABLE when a file or text is not JSON. On failure nothing is changed or written; only
// updateDataSet() goes on with the other components when one cannot be updated.

#include "Fcodes.h"

#include <json/value.h>
#include <list>
#include <string>
#include <vector>

class IDataSets
{
public:
    /// Groups calls into one step: `const std::lock_guard guard(*store);`. Recursive; while one
    /// thread holds it, the operations wait in every other.
    void lock() { doLock(); }
    void unlock() { doUnlock(); }

    /// Whole datasets and components. loadDataSet(path) takes the name from the document itself.
    virtual Fcodes loadDataSet(const std::string& path) = 0;
    virtual Fcodes loadDataSet(const std::string& dataset, const std::string& path) = 0;
    virtual Fcodes storeDataSet(const std::string& dataset, const std::string& path) = 0;
    virtual Fcodes addDataSet(const std::string& dataset) = 0;
    virtual Fcodes deleteDataSet(const std::string& dataset) = 0;
    virtual Fcodes updateDataSet(const std::string& src, const std::string& ref, bool keepAbsent,
                                 bool mergeProperties, bool replaceInstances) = 0;
    virtual Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) = 0;
    virtual Fcodes addComponent(const std::string& dataset, const std::string& component) = 0;
    virtual Fcodes deleteComponent(const std::string& dataset, const std::string& component) = 0;
    virtual Fcodes loadComponent(const std::string& dataset, const std::string& component,
                                 const std::string& text) = 0;
    virtual Fcodes getComponentSize(const std::string& dataset, const std::string& component,
                                    int& size) = 0;

    /// Instances. They come and go in the committed tree at once.
    virtual Fcodes addInstance(const std::string& dataset, const std::string& component,
                               const std::string& key) = 0;
    virtual Fcodes appendInstance(const std::string& dataset, const std::string& component,
                                  int& index) = 0;
    virtual Fcodes removeInstance(const std::string& dataset, const std::string& component,
                                  int index) = 0;
    virtual Fcodes removeInstance(const std::string& dataset, const std::string& component,
                                  const std::string& key) = 0;
    virtual Fcodes clearComponent(const std::string& dataset, const std::string& component) = 0;
    virtual bool hasInstance(const std::string& dataset, const std::string& component,
                             const std::string& key) = 0;
    virtual bool hasInstance(const std::string& dataset, const std::string& component,
                             int index) = 0;

    /// Lists and searches. getProperties replaces the list, getInstances appends to it.
    virtual Fcodes getProperties(const std::string& dataset, const std::string& component,
                                 std::vector<std::string>& names) = 0;
    virtual Fcodes getInstances(const std::string& dataset, const std::string& component,
                                std::vector<std::string>& names) = 0;
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
    virtual Fcodes getComponentProperty(const std::string& dataset, const std::string& component,
                                        const std::string& property, std::string& access,
                                        std::string& type, std::string& defaultValue,
                                        std::list<std::string>& values) = 0;
    virtual Fcodes getComponentPropertyDefault(const std::string& dataset,
                                               const std::string& component,
                                               const std::string& property,
                                               std::string& defaultValue) = 0;

    /// Committed values.
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

    /// The pending value, or the committed one where nothing is pending.
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

    /// Pending writes: they wait for commit() or rollback().
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

    /// Committed writes: they take effect at once and drop what is pending for the property.
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

    /// Working copies. Touching replaces what is pending with a full copy of the committed data.
    virtual void touchDataSet(const std::string& dataset) = 0;
    virtual void untouchDataSet(const std::string& dataset) = 0;
    virtual void touchComponent(const std::string& dataset, const std::string& component) = 0;
    virtual void untouchComponent(const std::string& dataset, const std::string& component) = 0;

    /// "Changed" is what stands in the tree of pending changes, whether or not a value differs.
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

    /// Whole JSON requests. A reply ends with the result as "fcode" and "description", and takes
    /// the place of whatever the caller's value held; getParams and the fetches answer what they
    /// can and return the last failure, setParams does all or nothing and writes pending values.
    virtual Fcodes setParams(const Json::Value& request, Json::Value& reply) = 0;
    virtual Fcodes getParams(const Json::Value& request, Json::Value& reply) = 0;
    virtual Fcodes fetchPropertyNames(const Json::Value& request, Json::Value& reply) = 0;
    virtual Fcodes fetchComponentKeys(const Json::Value& request, Json::Value& reply) = 0;

    /// Ends a change. Always FC_OK.
    virtual Fcodes commit() = 0;
    virtual Fcodes commitComponent(const std::string& dataset, const std::string& component) = 0;
    virtual Fcodes rollback() = 0;
    virtual Fcodes rollbackComponent(const std::string& dataset, const std::string& component) = 0;

    virtual ~IDataSets() = default; // its place in the order of the operations

    virtual void untouchProperty(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& key) = 0;
    virtual void untouchProperty(const std::string& dataset, const std::string& component,
                                 const std::string& property, int index) = 0;

    /// Hooks called just before a JSON request reads; a derived store brings its data up to date
    /// in them. Results are ignored.
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

private:
    // Last, so that the operations keep their places in the virtual table. A store without threads
    // needs no lock.
    virtual void doLock() {}
    virtual void doUnlock() {}
};
