#include "DataHolder.h"

#include "DataSetsFactory.h"
#include "DbgLine.h"
#include "IDataSets.h"
#include "MessageEvent.h"

#include <cerrno>
#include <memory>
#include <new>
#include <sys/prctl.h>
#include <unistd.h>

namespace
{

constexpr char kUnit[] = "DataHolder";

enum QueueEntryType : int { QUEUE_COMMAND = 1, QUEUE_EVENT = 2 };

constexpr int kWorkerPriority = 30;

} // namespace

DataHolder::~DataHolder()
{
    sem_close(&mQueued);
    // Kept on purpose: callers count on a quick exit; the store's destructor is not run, and what
    // the store holds is freed with the process.
    ::operator delete(static_cast<void*>(mStore));
}

void DataHolder::init(const std::string& name)
{
    mName = name;
    mStore = createDataSets();
    if (mStore == nullptr)
        DBG_LOG(SEV_FATAL) << "DataHolder::init Couldn't create dataSets_json Object";
    if (sem_init(&mQueued, 0, 0) == -1)
        DBG_LOG(SEV_ERROR) << "init: sem_init failed errno=" << errno;
    startWorker();
}

bool DataHolder::startWorker()
{
    // The scheduling attributes take effect only where a launcher asks for explicit scheduling;
    // by default the worker inherits its creator's.
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setschedpolicy(&attributes, SCHED_RR);
    sched_param priority{};
    priority.sched_priority = kWorkerPriority;
    pthread_attr_setschedparam(&attributes, &priority);
    pthread_t worker;
    if (const int error = pthread_create(&worker, &attributes, work, this); error != 0) {
        errno = error;
        DBG_LOG(SEV_FATAL) << "DataHolder::init pthread_create failed errno=" << errno;
    } else {
        mWorkerRuns = true;
    }
    pthread_attr_destroy(&attributes);
    return mWorkerRuns;
}

void DataHolder::startMissingThreads()
{
    for (;;) {
        const bool workerRuns = mWorkerRuns || startWorker();
        if (mCommunicator.start() && workerRuns)
            return;
        sleep(1);
    }
}

IDataSets* DataHolder::createDataSets()
{
    DataSetsFactory factory;
    return factory.createDataSets();
}

int DataHolder::lock() { return pthread_mutex_lock(&mMutex); }

int DataHolder::unlock() { return pthread_mutex_unlock(&mMutex); }

Fcodes DataHolder::execute(const std::string& command, std::string& /*result*/)
{
    if (push({QUEUE_COMMAND, static_cast<int>(command.size()), new std::string(command)}) == -1)
        DBG_LOG(SEV_ERROR) << "execute: sem_post failed errno=" << errno;
    return FC_OK;
}

Fcodes DataHolder::handle(MessageEvent* event)
{
    if (push({QUEUE_EVENT, static_cast<int>(sizeof(MessageEvent)), event}) == -1)
        DBG_LOG(SEV_ERROR) << "handle: sem_post failed errno=" << errno;
    return FC_OK;
}

Fcodes DataHolder::doExecute(const std::string& command, std::string& /*result*/)
{
    DBG_LOG(SEV_INFO) << "doExecute: arrived command=" << command;
    // Kept on purpose: peers that send these commands count on nothing being accepted or rolled
    // back. What they send is a whole Command element, which never equals the words alone; these
    // come from the application itself, through execute().
    if (command == "Accept Changes") {
        acceptChanges(); // the sender has its answer already
        return FC_OK;
    }
    if (command == "Rollback Changes") {
        rollbackChanges();
        return FC_OK;
    }
    DBG_LOG(SEV_WARN) << "doExecute: Unsupported Command=" << command;
    return FC_NO_SUCH_NAME;
}

Fcodes DataHolder::requestCommand(const std::string& target, const std::string& command,
                                  std::string& result, unsigned timeout, unsigned tries)
{
    return mCommunicator.requestCommand(target, command, result, static_cast<int>(timeout),
                                        static_cast<int>(tries));
}

Fcodes DataHolder::requestEvent(const std::string& target, MessageEvent& event, unsigned timeout,
                                unsigned tries)
{
    return mCommunicator.requestEvent(target, event, static_cast<int>(timeout),
                                      static_cast<int>(tries));
}

void DataHolder::notify(MessageEvent& event) { mCommunicator.notify(event); }

void* DataHolder::work(void* holder)
{
    static_cast<DataHolder*>(holder)->doWork();
    return nullptr;
}

void DataHolder::doWork()
{
    setTaskName(currentTaskId(), mName);
    prctl(PR_SET_NAME, "DataHolder");
    for (;;) {
        event_type entry;
        sem_wait(&mQueued);
        if (pop(entry))
            dispatch(entry);
    }
}

int DataHolder::push(event_type entry)
{
    {
        const std::lock_guard guard(mQueueMutex);
        mQueue.push_back(entry);
    }
    return sem_post(&mQueued);
}

bool DataHolder::pop(event_type& entry)
{
    const std::lock_guard guard(mQueueMutex);
    if (mQueue.empty())
        return false;
    entry = mQueue.front();
    mQueue.pop_front();
    return true;
}

void DataHolder::dispatch(const event_type& entry)
{
    switch (entry.type) {
    case QUEUE_COMMAND: {
        const std::unique_ptr<std::string> command(static_cast<std::string*>(entry.data));
        std::string result; // nobody waits for it
        doExecute(*command, result);
        break;
    }
    case QUEUE_EVENT: {
        const std::unique_ptr<MessageEvent> event(static_cast<MessageEvent*>(entry.data));
        doHandle(event.get());
        break;
    }
    default:
        DBG_LOG(SEV_ERROR) << "doWork: unknown event arrived id=" << entry.type;
        ::operator delete(entry.data);
    }
}
