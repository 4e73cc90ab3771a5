#pragma once

// Base of an application's main object. It owns the dataset store, contains the communicator, and
// runs a worker thread that takes commands and events off a queue, one at a time and in the order
// in which they came, and hands them to the application's doExecute() and doHandle().
//
// An application derives, supplies doHandle(), overrides doExecute() and where it needs to
// execute(), acceptChanges() and deleteRow(), calls init() and then starts the communicator. The
// object must live as long as the process: its threads are never stopped.
//
// Threads: after init() every operation may be called from any thread; what a group says of its
// thread is said of overrides. lock()/unlock() guard the application's own data; the holder itself
// never takes that lock, so `std::lock_guard guard(*this)` around calls of the holder is safe.

#include "DataCommunicator.h"
#include "IDataHolder.h"

#include <deque>
#include <map>
#include <mutex>
#include <pthread.h>
#include <semaphore.h>
#include <string>
#include <vector>

class DataSet;
class DataTable;
class IDataSets;

class DataHolder : public IDataHolder
{
public:
    DataHolder() = default;
    ~DataHolder() override;

    DataHolder(const DataHolder&) = delete;
    DataHolder& operator=(const DataHolder&) = delete;

    /// Creates the store and starts the worker, which logs under `name`. Comes first, and once;
    /// only lock(), unlock(), addDataSet() and what works on tables may be called before. Failures
    /// are logged and not returned; without a store no operation of the store may be called.
    void init(const std::string& name) override;

    /// Returns when the worker and the responder run, for the end of an application's start-up: a
    /// thread that could not be made is tried again each second, with a log line.
    void startMissingThreads();

    /// Makes the store of init(): a new one that the holder owns, or null.
    IDataSets* createDataSets() override;

    /// The application's recursive lock, usable before init() too. 0, or an errno value and no
    /// change: EPERM from unlock() in a thread that does not hold it.
    int lock();
    int unlock();

    /// Queue a command or an event for the worker; always FC_OK, at once. The queue has no limit.
    /// The result of a queued command is dropped and `result` is not written. The event, made with
    /// `new`, belongs to the queue from here on and is deleted after doHandle(); never null.
    Fcodes execute(const std::string& command, std::string& result) override;
    Fcodes handle(MessageEvent* event) override;

    /// Carries out a queued command on the worker's thread: exactly "Accept Changes" or "Rollback
    /// Changes"; FC_NO_SUCH_NAME for any other text. `result` is not written.
    Fcodes doExecute(const std::string& command, std::string& result) override;

    /// All registered data sets, in the order of their names; not the store, which has commit() and
    /// rollback(). acceptChanges() joins the results, rollbackChanges() is always FC_OK.
    Fcodes acceptChanges() override;
    Fcodes rollbackChanges() override;

    /// Data sets of tables, by name. The holder does not own them: they live as long as it does. An
    /// earlier one of that name is replaced; null changes nothing. Register all before other
    /// threads use them.
    void addDataSet(std::string name, DataSet* dataSet) override;
    DataSet* getDataSet(std::string name) override;

    /// Where tables come from: the first registered set that holds the table, or null. Every
    /// operation on a table asks findDataTable().
    DataTable* findDataTable(const std::string& table) override;
    DataSet* findDataSetWithTable(const std::string& table) override;

    /// Columns: their names in order (none for an unknown table), default as decimal text, type
    /// code. FC_NO_SUCH_NAME for an unknown table or column.
    std::vector<std::string> getColumnNames(const std::string& table) override;
    Fcodes getDefValue(const std::string& table, const std::string& column,
                       std::string& text) override;
    Fcodes getParamType(const std::string& table, const std::string& column, int& type) override;

    /// A placeholder: FC_OK, and no table is touched.
    Fcodes addColumnToTable(const std::string& dataSet, const std::string& table,
                            const std::string& column, int type, int defaultValue) override;

    /// Cells: committed values, pending values, pending writes, writes of both, and state bits.
    /// Each runs under the table's lock. `value` must not be null, and is untouched on failure.
    /// FC_NO_SUCH_NAME when table, row or item is missing; writes answer with the item's own
    /// result, see DataItem.
    Fcodes getIntParam(const std::string& table, int rowId, const std::string& item,
                       int* value) override;
    Fcodes getNewIntParam(const std::string& table, int rowId, const std::string& item,
                          int* value) override;
    Fcodes getStringParam(const std::string& table, int rowId, const std::string& item,
                          std::string* value) override;
    Fcodes getNewStringParam(const std::string& table, int rowId, const std::string& item,
                             std::string* value) override;
    Fcodes setIntParam(const std::string& table, int rowId, const std::string& item,
                       int value) override;
    Fcodes setStringParam(const std::string& table, int rowId, const std::string& item,
                          const std::string& value) override;
    Fcodes initIntParam(const std::string& table, int rowId, const std::string& item,
                        int value) override;
    Fcodes initStringParam(const std::string& table, int rowId, const std::string& item,
                           const std::string& value) override;
    Fcodes getParamState(const std::string& table, int rowId, const std::string& item,
                         unsigned& state) override;

    /// Rows, also on the responder's thread when a peer asks. Ids start at 1; 0 says that there is
    /// no such row or table. The walks pass over different rows, see DataTable. newRow() takes the
    /// first free id for 0 and any other id as it is, negative ones too; the id of a row that
    /// exists comes back, and the row stays as it is, while the table counts as modified.
    /// deleteRow() removes at once, with 0 every row: FC_OK also for a row that is missing,
    /// FC_NO_SUCH_NAME for an unknown table.
    int getFirstRowIndex(const std::string& table) override;
    int getNextRowIndex(const std::string& table, int rowId) override;
    int getLastRowIndex(const std::string& table) override;
    int getRowsNum(const std::string& table) override;
    int newRow(const std::string& table, int rowId) override;
    int appendNewRow(const std::string& table) override;
    Fcodes deleteRow(const std::string& table, int rowId) override;

    /// Messages to peers, on the calling thread, with the results of DataCommunicator. `target` is
    /// the path of the peer's receive socket. `timeout` is in seconds for each of `tries`: 0 waits
    /// without limit, and the unsigned form of -1 does not wait. requestEvent() waits for no
    /// answer: its `timeout` is the delay between tries while the receiver is full (0: 10 seconds,
    /// -1: no wait). Only notify() sets the event's Time. The communicator lives as long as the
    /// holder.
    Fcodes requestCommand(const std::string& target, const std::string& command,
                          std::string& result, unsigned timeout, unsigned tries) override;
    Fcodes requestEvent(const std::string& target, MessageEvent& event, unsigned timeout,
                        unsigned tries);
    void notify(MessageEvent& event);
    DataCommunicator& getDataCommunicator() const { return mCommunicator; }

    /// A cell of a peer's table, and a value of a peer's dataset: up to 3 tries of 10 seconds.
    /// The number is untouched on failure; the text may come with a failure that the peer reports.
    /// The instance is a key; the empty key is a component's single instance.
    Fcodes requestRemoteStringParam(const std::string& target, const std::string& table, int rowId,
                                    const std::string& item, std::string& value) override;
    Fcodes requestRemoteIntParam(const std::string& target, const std::string& table, int rowId,
                                 const std::string& item, int& value) override;
    Fcodes requestSetRemoteStringParam(const std::string& target, const std::string& table,
                                       int rowId, const std::string& item,
                                       const std::string& value) override;
    Fcodes requestSetRemoteIntParam(const std::string& target, const std::string& table, int rowId,
                                    const std::string& item, int value) override;
    Fcodes requestGetTextParam(const std::string& target, const std::string& dataset,
                               const std::string& component, const std::string& property,
                               std::string& value, const std::string& key) override;
    Fcodes requestGetIntParam(const std::string& target, const std::string& dataset,
                              const std::string& component, const std::string& property, int& value,
                              const std::string& key) override;

    /// Rows of a peer's table, with the results of requestCommand(). The row is written only when
    /// the peer's answer names one. A responder of this library finds no table in the request:
    /// FC_BODY_ERROR, see docs/kept-on-purpose.md.
    Fcodes requestAddRow(const std::string& target, const std::string& table, int rowId,
                         int& newRowId, unsigned timeout, unsigned tries) override;
    Fcodes requestNextRowId(const std::string& target, const std::string& table, int rowId,
                            int& nextRowId, unsigned timeout, unsigned tries) override;

    /// The store of this holder: the operations of IDataSets with the results described there, in
    /// that order. Only after init() has created a store.
    virtual Fcodes loadDataSet(const std::string& path);
    virtual Fcodes loadDataSet(const std::string& dataset, const std::string& path);
    virtual Fcodes storeDataSet(const std::string& dataset, const std::string& path);
    int lastStoreError(const std::string& path);
    virtual Fcodes deleteDataSet(const std::string& dataset);
    virtual Fcodes updateDataSet(const std::string& src, const std::string& ref, bool keepAbsent,
                                 bool mergeProperties, bool replaceInstances);
    Fcodes findDataSetWithComponent(std::string& dataset, const std::string& component) override;

    virtual Fcodes addInstance(const std::string& dataset, const std::string& component,
                               const std::string& key);
    virtual Fcodes appendInstance(const std::string& dataset, const std::string& component,
                                  int& index);
    virtual Fcodes removeInstance(const std::string& dataset, const std::string& component,
                                  int index);
    virtual Fcodes removeInstance(const std::string& dataset, const std::string& component,
                                  const std::string& key);
    virtual Fcodes clearComponent(const std::string& dataset, const std::string& component);
    virtual bool hasInstance(const std::string& dataset, const std::string& component,
                             const std::string& key);
    virtual bool hasInstance(const std::string& dataset, const std::string& component, int index);

    Fcodes getProperties(const std::string& dataset, const std::string& component,
                         std::vector<std::string>& names) override;
    Fcodes getInstances(const std::string& dataset, const std::string& component,
                        std::vector<std::string>& names) override;
    virtual std::vector<std::string> getInstancesByParameter(const std::string& dataset,
                                                             const std::string& component,
                                                             const std::string& property,
                                                             const std::string& condition,
                                                             const std::string& operand);
    virtual std::vector<std::string>
    getInstancesByParameter(const std::string& dataset, const std::string& component,
                            const std::string& property, const std::string& condition, int operand);
    virtual std::vector<std::string> getInstancesByKey(const std::string& dataset,
                                                       const std::string& component,
                                                       const std::string& condition,
                                                       const std::string& operand);
    virtual Fcodes getComponentPropertyDefault(const std::string& dataset,
                                               const std::string& component,
                                               const std::string& property,
                                               std::string& defaultValue);

    virtual Fcodes getIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int& value, int index);
    virtual Fcodes getIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int& value, const std::string& key);
    virtual Fcodes getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value, int index);
    Fcodes getTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, std::string& value,
                        const std::string& key) override;
    virtual Fcodes getBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool& value, int index);
    virtual Fcodes getBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool& value, const std::string& key);

    virtual Fcodes getNewIntParam(const std::string& dataset, const std::string& component,
                                  const std::string& property, int& value, int index);
    virtual Fcodes getNewIntParam(const std::string& dataset, const std::string& component,
                                  const std::string& property, int& value, const std::string& key);
    virtual Fcodes getNewTextParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, std::string& value, int index);
    virtual Fcodes getNewTextParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, std::string& value,
                                   const std::string& key);
    virtual Fcodes getNewBoolParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, bool& value, int index);
    virtual Fcodes getNewBoolParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, bool& value,
                                   const std::string& key);

    virtual Fcodes setIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int value, int index);
    virtual Fcodes setIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int value, const std::string& key);
    virtual Fcodes setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value, int index);
    Fcodes setTextParam(const std::string& dataset, const std::string& component,
                        const std::string& property, const std::string& value,
                        const std::string& key) override;
    virtual Fcodes setBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool value, int index);
    virtual Fcodes setBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool value, const std::string& key);

    virtual Fcodes initIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int value, int index);
    virtual Fcodes initIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int value, const std::string& key);
    virtual Fcodes initTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value, int index);
    virtual Fcodes initTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value,
                                 const std::string& key);
    virtual Fcodes initBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool value, int index);
    virtual Fcodes initBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool value, const std::string& key);

    virtual void touchDataSet(const std::string& dataset);
    virtual void untouchDataSet(const std::string& dataset);
    virtual void touchComponent(const std::string& dataset, const std::string& component);
    virtual void untouchComponent(const std::string& dataset, const std::string& component);
    virtual bool isChanged();
    virtual bool isChangedDataSet(const std::string& dataset);
    virtual bool isChangedComponent(const std::string& dataset, const std::string& component);
    virtual bool isChangedInstance(const std::string& dataset, const std::string& component,
                                   const std::string& key);
    virtual bool isChangedInstance(const std::string& dataset, const std::string& component,
                                   int index);
    virtual bool isChangedProperty(const std::string& dataset, const std::string& component,
                                   const std::string& property, const std::string& key);
    virtual bool isChangedProperty(const std::string& dataset, const std::string& component,
                                   const std::string& property, int index);

    virtual Fcodes commit();
    virtual Fcodes commitComponent(const std::string& dataset, const std::string& component);
    virtual Fcodes rollback();
    virtual Fcodes rollbackComponent(const std::string& dataset, const std::string& component);

    /// The worker's thread: work(), its entry, takes the holder and runs doWork(), which never
    /// returns. For init() alone.
    static void* work(void* holder);
    void doWork();

protected:
    /// As of the store alone: for doListInstances() of an application that does not override
    /// getInstances().
    Fcodes listStoredInstances(const std::string& dataset, const std::string& component,
                               std::vector<std::string>& names, std::size_t perName,
                               std::size_t limit);

    /// One entry of the queue; it owns `data`. The worker refuses a type that it does not know.
    struct event_type {
        int type = 0;         ///< 1 for a command, 2 for an event.
        int size = 0;         ///< Length of the command's text, or size of the event record.
        void* data = nullptr; ///< A std::string, or a MessageEvent
    };

    /// Queues the entry and wakes the worker. -1 with errno when sem_post() failed; the entry is
    /// queued nevertheless.
    int push(event_type entry);

private:
    struct CellLogTexts;

    template <typename Work>
    Fcodes withItem(const CellLogTexts& texts, const std::string& table, int rowId,
                    const std::string& item, Work work);
    template <typename Work>
    int withTable(const std::string& table, Work work);
    Fcodes requestRow(const char* command, const std::string& target, const std::string& table,
                      int rowId, int& answeredRow, unsigned timeout, unsigned tries);

    bool startWorker();
    bool pop(event_type& entry);
    void dispatch(const event_type& entry);

    mutable DataCommunicator mCommunicator;
    std::map<std::string, DataSet*> mDataSets; // registered before other threads use them
    IDataSets* mStore = nullptr;               // set once by init()
    sem_t mQueued{};                           // counts the entries of mQueue
    std::string mName;
    bool mWorkerRuns = false; // the thread's that starts the application
    std::mutex mQueueMutex;   // guards mQueue
    std::deque<event_type> mQueue;
    pthread_mutex_t mMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP; // behind lock()/unlock()
};
