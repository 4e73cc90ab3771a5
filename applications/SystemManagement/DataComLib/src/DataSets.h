#pragma once

// The JSON store: named datasets as documents of components, instances and typed properties. The
// committed documents live in one tree, working copies of what is being changed in a second one of
// the same shape; commit() copies values from the second to the first. Only storeDataSet() writes a
// file.
//
// Owned by the application's data holder. Any thread may call; an operation holds the store's
// recursive lock for its whole run. The exceptions: isChanged() and its kind do not take it, the
// load operations parse their text and storeDataSet() writes its file outside it. To make several
// calls one step, bracket them: `const std::lock_guard guard(store);`.
//
// Documents come from files, so any shape may stand anywhere in them; nothing throws for that. What
// the operations mean is explained in IDataSets.h.

#include "IDataSets.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <shared_mutex>

class CommittedTree;
class InstanceFilter;
class InstanceRef;
struct ParamRef;

class DataSets : public IDataSets
{
public:
    DataSets();
    ~DataSets() override;

    DataSets(const DataSets&) = delete;
    DataSets& operator=(const DataSets&) = delete;

    // In the order of IDataSets.

    Fcodes loadDataSet(const std::string& path) override;
    Fcodes loadDataSet(const std::string& dataset, const std::string& path) override;
    Fcodes storeDataSet(const std::string& dataset, const std::string& path) override;
    Fcodes addDataSet(const std::string& dataset) override;
    Fcodes deleteDataSet(const std::string& dataset) override;
    Fcodes updateDataSet(const std::string& src, const std::string& ref, bool keepAbsent,
                         bool mergeProperties, bool replaceInstances) override;
    Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) override;
    Fcodes addComponent(const std::string& dataset, const std::string& component) override;
    Fcodes deleteComponent(const std::string& dataset, const std::string& component) override;
    Fcodes loadComponent(const std::string& dataset, const std::string& component,
                         const std::string& text) override;
    Fcodes getComponentSize(const std::string& dataset, const std::string& component,
                            int& size) override;

    Fcodes addInstance(const std::string& dataset, const std::string& component,
                       const std::string& key) override;
    Fcodes appendInstance(const std::string& dataset, const std::string& component,
                          int& index) override;
    Fcodes removeInstance(const std::string& dataset, const std::string& component,
                          int index) override;
    Fcodes removeInstance(const std::string& dataset, const std::string& component,
                          const std::string& key) override;
    Fcodes clearComponent(const std::string& dataset, const std::string& component) override;
    bool hasInstance(const std::string& dataset, const std::string& component,
                     const std::string& key) override;
    bool hasInstance(const std::string& dataset, const std::string& component, int index) override;

    Fcodes getProperties(const std::string& dataset, const std::string& component,
                         std::vector<std::string>& names) override;
    Fcodes getInstances(const std::string& dataset, const std::string& component,
                        std::vector<std::string>& names) override;
    std::vector<std::string> getInstancesByParameter(const std::string& dataset,
                                                     const std::string& component,
                                                     const std::string& property,
                                                     const std::string& condition,
                                                     const std::string& operand) override;
    std::vector<std::string> getInstancesByParameter(const std::string& dataset,
                                                     const std::string& component,
                                                     const std::string& property,
                                                     const std::string& condition,
                                                     int operand) override;
    std::vector<std::string> getInstancesByKey(const std::string& dataset,
                                               const std::string& component,
                                               const std::string& condition,
                                               const std::string& operand) override;
    Fcodes getComponentProperty(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& access, std::string& type,
                                std::string& defaultValue, std::list<std::string>& values) override;
    Fcodes getComponentPropertyDefault(const std::string& dataset, const std::string& component,
                                       const std::string& property,
                                       std::string& defaultValue) override;

    Fcodes getIntParam(const std::string& dataset, const std::string& component,
                       const std::string& property, int& value, int index) override;
    Fcodes getIntParam(const std::string& dataset, const std::string& component,
                       const std::string& property, int& value, const std::string& key) override;
    Fcodes getTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, std::string& value, int index) override;
    Fcodes getTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, std::string& value,
                        const std::string& key) override;
    Fcodes getBoolParam(const std::string& dataset, const std::string& component,
                        const std::string& property, bool& value, int index) override;
    Fcodes getBoolParam(const std::string& dataset, const std::string& component,
                        const std::string& property, bool& value, const std::string& key) override;

    Fcodes getNewIntParam(const std::string& dataset, const std::string& component,
                          const std::string& property, int& value, int index) override;
    Fcodes getNewIntParam(const std::string& dataset, const std::string& component,
                          const std::string& property, int& value, const std::string& key) override;
    Fcodes getNewTextParam(const std::string& dataset, const std::string& component,
                           const std::string& property, std::string& value, int index) override;
    Fcodes getNewTextParam(const std::string& dataset, const std::string& component,
                           const std::string& property, std::string& value,
                           const std::string& key) override;
    Fcodes getNewBoolParam(const std::string& dataset, const std::string& component,
                           const std::string& property, bool& value, int index) override;
    Fcodes getNewBoolParam(const std::string& dataset, const std::string& component,
                           const std::string& property, bool& value,
                           const std::string& key) override;

    Fcodes setIntParam(const std::string& dataset, const std::string& component,
                       const std::string& property, int value, int index) override;
    Fcodes setIntParam(const std::string& dataset, const std::string& component,
                       const std::string& property, int value, const std::string& key) override;
    Fcodes setTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, const std::string& value, int index) override;
    Fcodes setTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, const std::string& value,
                        const std::string& key) override;
    Fcodes setBoolParam(const std::string& dataset, const std::string& component,
                        const std::string& property, bool value, int index) override;
    Fcodes setBoolParam(const std::string& dataset, const std::string& component,
                        const std::string& property, bool value, const std::string& key) override;

    Fcodes initIntParam(const std::string& dataset, const std::string& component,
                        const std::string& property, int value, int index) override;
    Fcodes initIntParam(const std::string& dataset, const std::string& component,
                        const std::string& property, int value, const std::string& key) override;
    Fcodes initTextParam(const std::string& dataset, const std::string& component,
                         const std::string& property, const std::string& value, int index) override;
    Fcodes initTextParam(const std::string& dataset, const std::string& component,
                         const std::string& property, const std::string& value,
                         const std::string& key) override;
    Fcodes initBoolParam(const std::string& dataset, const std::string& component,
                         const std::string& property, bool value, int index) override;
    Fcodes initBoolParam(const std::string& dataset, const std::string& component,
                         const std::string& property, bool value, const std::string& key) override;

    void touchDataSet(const std::string& dataset) override;
    void untouchDataSet(const std::string& dataset) override;
    void touchComponent(const std::string& dataset, const std::string& component) override;
    void untouchComponent(const std::string& dataset, const std::string& component) override;

    bool isChanged() override;
    bool isChangedDataSet(const std::string& dataset) override;
    bool isChangedComponent(const std::string& dataset, const std::string& component) override;
    bool isChangedInstance(const std::string& dataset, const std::string& component,
                           const std::string& key) override;
    bool isChangedInstance(const std::string& dataset, const std::string& component,
                           int index) override;
    bool isChangedProperty(const std::string& dataset, const std::string& component,
                           const std::string& property, const std::string& key) override;
    bool isChangedProperty(const std::string& dataset, const std::string& component,
                           const std::string& property, int index) override;

    Fcodes setParams(const Json::Value& request, Json::Value& reply) override;
    Fcodes getParams(const Json::Value& request, Json::Value& reply) override;
    Fcodes fetchPropertyNames(const Json::Value& request, Json::Value& reply) override;
    Fcodes fetchComponentKeys(const Json::Value& request, Json::Value& reply) override;

    Fcodes commit() override;
    Fcodes commitComponent(const std::string& dataset, const std::string& component) override;
    Fcodes rollback() override;
    Fcodes rollbackComponent(const std::string& dataset, const std::string& component) override;
    void untouchProperty(const std::string& dataset, const std::string& component,
                         const std::string& property, const std::string& key) override;
    void untouchProperty(const std::string& dataset, const std::string& component,
                         const std::string& property, int index) override;

    Fcodes onGetDataset(const std::string& dataset) override;
    Fcodes onGetComponent(const std::string& dataset, const std::string& component) override;
    Fcodes onGetComponentEntry(const std::string& dataset, const std::string& component,
                               const std::string& key) override;
    Fcodes onGetComponentEntry(const std::string& dataset, const std::string& component,
                               int index) override;
    Fcodes onGetComponentValue(const std::string& dataset, const std::string& component,
                               const std::string& property, const std::string& key) override;
    Fcodes onGetComponentValue(const std::string& dataset, const std::string& component,
                               const std::string& property, int index) override;

private:
    void doLock() override;
    void doUnlock() override;
    int doLastStoreError(const std::string& path) override;
    Fcodes doListInstances(const std::string& dataset, const std::string& component,
                           std::vector<std::string>& names, std::size_t perName,
                           std::size_t limit) override;

    /// How a writer differs from the others.
    struct WriteOperation {
        const char* prefix;          // of its log lines, up to the dataset
        bool committed = false;      // writes the committed tree and drops what is pending
        bool logsIndex = false;      // its "No such name." line has the index
        bool logsConversion = false; // logs what a text was converted to
    };

    Fcodes parseDocument(int file, const std::string& path, Json::Value& root);
    void replaceDocument(const std::string& dataset, Json::Value& document);

    template <typename Value>
    Fcodes convert(const char* prefix, const ParamRef& at, const Json::Value& current,
                   Value& value);
    template <typename Value>
    Fcodes readParam(const char* prefix, const ParamRef& at, Value& value);
    template <typename Value, typename ReadCommitted>
    Fcodes readNewParam(const char* prefix, const ParamRef& at, Value& value,
                        ReadCommitted readCommitted);
    template <typename Value>
    Fcodes writeParam(const WriteOperation& operation, const ParamRef& at, const Value& value);
    template <typename Value>
    Fcodes logMissing(const WriteOperation& operation, const ParamRef& at, const Value& value);
    template <typename Value>
    void logRefusal(const WriteOperation& operation, const ParamRef& at, const Value& value,
                    Fcodes result, const Json::Value& type);
    template <typename Value>
    void logConversion(const WriteOperation& operation, const ParamRef& at, const Value& value,
                       const Json::Value& stored);
    Fcodes writeCommitted(const ParamRef& at, Json::Value& current, Json::Value& value);
    Fcodes writePending(const WriteOperation& operation, const ParamRef& at, Json::Value& value);

    std::vector<std::string> findInstances(const std::string& dataset, const std::string& component,
                                           const std::string& property,
                                           const InstanceFilter& filter);
    void commitWorkingCopy(const std::string& dataset, const std::string& component,
                           const Json::Value& copy);
    void commitInstance(const std::string& dataset, const std::string& component,
                        const InstanceRef& instance, const Json::Value& copy);

    std::unique_ptr<CommittedTree> mDataSets; // committed documents, by dataset name
    Json::Value mChanges;                     // working copies, of the same shape
    pthread_mutex_t mMutex;                   // recursive; guards both trees and the two below
    std::shared_mutex mChangesMutex; // taken after mMutex to change mChanges; alone by isChanged…()
    std::uint64_t mLastSnapshot = 0; // numbers the copies that are made to be stored
    std::size_t mLongestText = 0;    // of a document read or stored, in bytes

    // Serialises the writing of files. Who holds it never takes mMutex, because a caller may hold
    // mMutex around storeDataSet().
    struct StoredFile {
        std::uint64_t number = 0; // of the copy that is in the file
        std::uint64_t latest = 0; // of the latest copy that was tried
        int error = 0;            // of that one
    };
    std::mutex mFileMutex;
    std::map<std::string, StoredFile> mStoredFiles; // by path
};
