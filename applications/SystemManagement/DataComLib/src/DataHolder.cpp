#include "DataHolder.h"

#include "DataSetsFactory.h"
#include "DbgLine.h"
#include "IDataSets.h"
#include "MessageEvent.h"

#include <cerrno>
#include <memory>
#include <new>
#include <sys/prctl.h>

namespace
{

constexpr char kUnit[] = "DataHolder";

enum QueueEntryType : int { kCommand = 1, kEvent = 2 };

constexpr int kWorkerPriority = 30;

} // namespace

DataHolder::~DataHolder()
{
    sem_close(&mQueued);
    // Kept on purpose: peers count on a quick end; what the store holds is abandoned, not taken
    // apart, and its memory goes back with the process.
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
    }
    pthread_attr_destroy(&attributes);
}

IDataSets* DataHolder::createDataSets()
{
    DataSetsFactory factory;
    return factory.createDataSets();
}

int DataHolder::lock()
{
    mMutex.lock();
    return 0;
}

int DataHolder::unlock()
{
    mMutex.unlock();
    return 0;
}

Fcodes DataHolder::execute(const std::string& command, std::string& /*result*/)
{
    if (push({kCommand, static_cast<int>(command.size()), new std::string(command)}) == -1)
        DBG_LOG(SEV_ERROR) << "execute: sem_post failed errno=" << errno;
    return FC_OK;
}

Fcodes DataHolder::handle(MessageEvent* event)
{
    if (push({kEvent, static_cast<int>(sizeof(MessageEvent)), event}) == -1)
        DBG_LOG(SEV_ERROR) << "handle: sem_post failed errno=" << errno;
    return FC_OK;
}

Fcodes DataHolder::doExecute(const std::string& command, std::string& /*result*/)
{
    DBG_LOG(SEV_INFO) << "doExecute: arrived command=" << command;
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
                                  std::string& result, int timeout, int tries)
{
    return mCommunicator.requestCommand(target, command, result, timeout, tries);
}

Fcodes DataHolder::requestEvent(const std::string& target, const MessageEvent& event, int timeout,
                                int tries)
{
    return mCommunicator.requestEvent(target, event, timeout, tries);
}

void DataHolder::notify(MessageEvent& event) { mCommunicator.notify(event); }

Fcodes DataHolder::loadDataSet(const std::string& path) { return mStore->loadDataSet(path); }

Fcodes DataHolder::loadDataSet(const std::string& dataset, const std::string& path)
{
    return mStore->loadDataSet(dataset, path);
}

Fcodes DataHolder::storeDataSet(const std::string& dataset, const std::string& path)
{
    return mStore->storeDataSet(dataset, path);
}

Fcodes DataHolder::deleteDataSet(const std::string& dataset)
{
    return mStore->deleteDataSet(dataset);
}

Fcodes DataHolder::updateDataSet(const std::string& src, const std::string& ref, bool keepAbsent,
                                 bool mergeProperties, bool replaceInstances)
{
    return mStore->updateDataSet(src, ref, keepAbsent, mergeProperties, replaceInstances);
}

Fcodes DataHolder::findDataSetWithComponent(std::string& dataset, const std::string& component)
{
    return mStore->findDataSetWithComponent(dataset, component);
}

Fcodes DataHolder::addInstance(const std::string& dataset, const std::string& component,
                               const std::string& key)
{
    return mStore->addInstance(dataset, component, key);
}

Fcodes DataHolder::appendInstance(const std::string& dataset, const std::string& component,
                                  int& index)
{
    return mStore->appendInstance(dataset, component, index);
}

Fcodes DataHolder::removeInstance(const std::string& dataset, const std::string& component,
                                  int index)
{
    return mStore->removeInstance(dataset, component, index);
}

Fcodes DataHolder::removeInstance(const std::string& dataset, const std::string& component,
                                  const std::string& key)
{
    return mStore->removeInstance(dataset, component, key);
}

Fcodes DataHolder::clearComponent(const std::string& dataset, const std::string& component)
{
    return mStore->clearComponent(dataset, component);
}

bool DataHolder::hasInstance(const std::string& dataset, const std::string& component,
                             const std::string& key)
{
    return mStore->hasInstance(dataset, component, key);
}

bool DataHolder::hasInstance(const std::string& dataset, const std::string& component, int index)
{
    return mStore->hasInstance(dataset, component, index);
}

Fcodes DataHolder::getProperties(const std::string& dataset, const std::string& component,
                                 std::vector<std::string>& names)
{
    return mStore->getProperties(dataset, component, names);
}

Fcodes DataHolder::getInstances(const std::string& dataset, const std::string& component,
                                std::vector<std::string>& names)
{
    return mStore->getInstances(dataset, component, names);
}

std::vector<std::string> DataHolder::getInstancesByParameter(const std::string& dataset,
                                                             const std::string& component,
                                                             const std::string& property,
                                                             const std::string& condition,
                                                             const std::string& operand)
{
    return mStore->getInstancesByParameter(dataset, component, property, condition, operand);
}

std::vector<std::string> DataHolder::getInstancesByParameter(const std::string& dataset,
                                                             const std::string& component,
                                                             const std::string& property,
                                                             const std::string& condition,
                                                             int operand)
{
    return mStore->getInstancesByParameter(dataset, component, property, condition, operand);
}

std::vector<std::string> DataHolder::getInstancesByKey(const std::string& dataset,
                                                       const std::string& component,
                                                       const std::string& condition,
                                                       const std::string& operand)
{
    return mStore->getInstancesByKey(dataset, component, condition, operand);
}

Fcodes DataHolder::getComponentPropertyDefault(const std::string& dataset,
                                               const std::string& component,
                                               const std::string& property,
                                               std::string& defaultValue)
{
    return mStore->getComponentPropertyDefault(dataset, component, property, defaultValue);
}

Fcodes DataHolder::getIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int& value, int index)
{
    return mStore->getIntParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int& value, const std::string& key)
{
    return mStore->getIntParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value, int index)
{
    return mStore->getTextParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, std::string& value,
                                const std::string& key)
{
    return mStore->getTextParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool& value, int index)
{
    return mStore->getBoolParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool& value, const std::string& key)
{
    return mStore->getBoolParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getNewIntParam(const std::string& dataset, const std::string& component,
                                  const std::string& property, int& value, int index)
{
    return mStore->getNewIntParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getNewIntParam(const std::string& dataset, const std::string& component,
                                  const std::string& property, int& value, const std::string& key)
{
    return mStore->getNewIntParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getNewTextParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, std::string& value, int index)
{
    return mStore->getNewTextParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getNewTextParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, std::string& value,
                                   const std::string& key)
{
    return mStore->getNewTextParam(dataset, component, property, value, key);
}

Fcodes DataHolder::getNewBoolParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, bool& value, int index)
{
    return mStore->getNewBoolParam(dataset, component, property, value, index);
}

Fcodes DataHolder::getNewBoolParam(const std::string& dataset, const std::string& component,
                                   const std::string& property, bool& value, const std::string& key)
{
    return mStore->getNewBoolParam(dataset, component, property, value, key);
}

Fcodes DataHolder::setIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int value, int index)
{
    return mStore->setIntParam(dataset, component, property, value, index);
}

Fcodes DataHolder::setIntParam(const std::string& dataset, const std::string& component,
                               const std::string& property, int value, const std::string& key)
{
    return mStore->setIntParam(dataset, component, property, value, key);
}

Fcodes DataHolder::setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value, int index)
{
    return mStore->setTextParam(dataset, component, property, value, index);
}

Fcodes DataHolder::setTextParam(const std::string& dataset, const std::string& component,
                                const std::string& property, const std::string& value,
                                const std::string& key)
{
    return mStore->setTextParam(dataset, component, property, value, key);
}

Fcodes DataHolder::setBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool value, int index)
{
    return mStore->setBoolParam(dataset, component, property, value, index);
}

Fcodes DataHolder::setBoolParam(const std::string& dataset, const std::string& component,
                                const std::string& property, bool value, const std::string& key)
{
    return mStore->setBoolParam(dataset, component, property, value, key);
}

Fcodes DataHolder::initIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int value, int index)
{
    return mStore->initIntParam(dataset, component, property, value, index);
}

Fcodes DataHolder::initIntParam(const std::string& dataset, const std::string& component,
                                const std::string& property, int value, const std::string& key)
{
    return mStore->initIntParam(dataset, component, property, value, key);
}

Fcodes DataHolder::initTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value, int index)
{
    return mStore->initTextParam(dataset, component, property, value, index);
}

Fcodes DataHolder::initTextParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, const std::string& value,
                                 const std::string& key)
{
    return mStore->initTextParam(dataset, component, property, value, key);
}

Fcodes DataHolder::initBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool value, int index)
{
    return mStore->initBoolParam(dataset, component, property, value, index);
}

Fcodes DataHolder::initBoolParam(const std::string& dataset, const std::string& component,
                                 const std::string& property, bool value, const std::string& key)
{
    return mStore->initBoolParam(dataset, component, property, value, key);
}

void DataHolder::touchDataSet(const std::string& dataset) { mStore->touchDataSet(dataset); }

void DataHolder::untouchDataSet(const std::string& dataset) { mStore->untouchDataSet(dataset); }

void DataHolder::touchComponent(const std::string& dataset, const std::string& component)
{
    mStore->touchComponent(dataset, component);
}

void DataHolder::untouchComponent(const std::string& dataset, const std::string& component)
{
    mStore->untouchComponent(dataset, component);
}

bool DataHolder::isChanged() { return mStore->isChanged(); }

bool DataHolder::isChangedDataSet(const std::string& dataset)
{
    return mStore->isChangedDataSet(dataset);
}

bool DataHolder::isChangedComponent(const std::string& dataset, const std::string& component)
{
    return mStore->isChangedComponent(dataset, component);
}

bool DataHolder::isChangedInstance(const std::string& dataset, const std::string& component,
                                   const std::string& key)
{
    return mStore->isChangedInstance(dataset, component, key);
}

bool DataHolder::isChangedInstance(const std::string& dataset, const std::string& component,
                                   int index)
{
    return mStore->isChangedInstance(dataset, component, index);
}

bool DataHolder::isChangedProperty(const std::string& dataset, const std::string& component,
                                   const std::string& property, const std::string& key)
{
    return mStore->isChangedProperty(dataset, component, property, key);
}

bool DataHolder::isChangedProperty(const std::string& dataset, const std::string& component,
                                   const std::string& property, int index)
{
    return mStore->isChangedProperty(dataset, component, property, index);
}

Fcodes DataHolder::commit() { return mStore->commit(); }

Fcodes DataHolder::commitComponent(const std::string& dataset, const std::string& component)
{
    return mStore->commitComponent(dataset, component);
}

Fcodes DataHolder::rollback() { return mStore->rollback(); }

Fcodes DataHolder::rollbackComponent(const std::string& dataset, const std::string& component)
{
    return mStore->rollbackComponent(dataset, component);
}

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
            serve(entry);
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

void DataHolder::serve(const event_type& entry)
{
    switch (entry.type) {
    case kCommand: {
        const std::unique_ptr<std::string> command(static_cast<std::string*>(entry.data));
        std::string result; // nobody waits for it
        doExecute(*command, result);
        break;
    }
    case kEvent: {
        const std::unique_ptr<MessageEvent> event(static_cast<MessageEvent*>(entry.data));
        doHandle(event.get());
        break;
    }
    default:
        DBG_LOG(SEV_ERROR) << "doWork: unknown event arrived id=" << entry.type;
        ::operator delete(entry.data);
    }
}
