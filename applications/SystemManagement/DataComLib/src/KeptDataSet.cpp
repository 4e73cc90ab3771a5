#include "KeptDataSet.h"

#include "DbgLine.h"
#include "IDataSets.h"
#include "base/RegularFile.h"
#include "store/DocumentText.h"
#include "store/JsonMember.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <json/reader.h>
#include <json/value.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace
{

constexpr char kUnit[] = "KeptDataSet";
constexpr std::chrono::seconds kRetryDelay{10};

std::string readFile(const std::string& path)
{
    std::string text;
    const int file = openRegularFile(path);
    if (file == -1)
        return text;
    if (readToEnd(file, text) != 0)
        text.clear();
    close(file);
    return text;
}

/// The components of a document; null unless each is one that a dataset can be brought up to date
/// with.
Json::Value componentsOf(const std::string& text)
{
    Json::Value document;
    try {
        if (!Json::Reader().parse(text, document))
            return {};
    } catch (const std::exception&) { // nested too deeply
        return {};
    }
    const Json::Value* components = member(&document, "components");
    const auto isComponent = [](const Json::Value& component) {
        const Json::Value* properties = member(&component, "properties");
        return component.isObject() && (properties == nullptr || properties->isObject());
    };
    if (components == nullptr || !components->isObject() ||
        !std::all_of(components->begin(), components->end(), isComponent))
        return {};
    return *components;
}

void addTo(IDataSets& store, const std::string& dataset, const Json::Value& components)
{
    store.addDataSet(dataset);
    for (auto component = components.begin(); component != components.end(); ++component)
        store.loadComponent(dataset, component.name(), documentText(*component));
}

} // namespace

KeptDataSet::KeptDataSet(std::string dataset, std::string file, std::string factory)
    : mDataSet(std::move(dataset)), mFile(std::move(file)), mFactory(std::move(factory))
{
}

KeptDataSet::KeptDataSet(std::string dataset, std::string file, const FactoryFile& factory)
    : KeptDataSet(std::move(dataset), std::move(file), readFile(factory.path))
{
}

Fcodes KeptDataSet::load(IDataSets& store)
{
    mStore = &store;
    const Json::Value factory = componentsOf(mFactory);
    Fcodes result = FC_OK;
    if (factory.isNull()) {
        DBG_LOG(SEV_ERROR) << "load: No factory components for dataset=" << mDataSet;
        result |= FC_BODY_ERROR;
    }
    struct stat info;
    if (lstat(mFile.c_str(), &info) == 0) {
        if (loadFile(factory))
            return result;
        setAside();
        result |= FC_UNAVAILABLE;
    }
    if (!factory.isNull())
        addTo(store, mDataSet, factory);
    return result;
}

bool KeptDataSet::loadFile(const Json::Value& factory)
{
    if (mStore->loadDataSet(mDataSet, mFile) != FC_OK)
        return false;
    if (factory.isNull())
        return true;
    const std::string reference = mDataSet + " factory";
    addTo(*mStore, reference, factory);
    const Fcodes result = mStore->updateDataSet(mDataSet, reference, false, true, false);
    mStore->deleteDataSet(reference);
    if (result != FC_OK)
        mStore->deleteDataSet(mDataSet);
    return result == FC_OK;
}

/// What somebody may still be able to mend is not stored over.
void KeptDataSet::setAside()
{
    const std::string copy = mFile + ".damaged";
    if (std::rename(mFile.c_str(), copy.c_str()) == 0)
        DBG_LOG(SEV_ERROR) << "load: Couldn't load the kept dataset, now file=" << copy;
    else
        DBG_LOG(SEV_ERROR) << "load: Couldn't load the kept dataset, nor rename file=" << mFile
                           << " errno=" << errno;
}

Fcodes KeptDataSet::commit()
{
    if (mStore == nullptr)
        return FC_UNAVAILABLE;
    const Fcodes result = mStore->commit();
    return result | store();
}

Fcodes KeptDataSet::store()
{
    if (mStore == nullptr)
        return FC_UNAVAILABLE;
    const Fcodes result = mStore->storeDataSet(mDataSet, mFile);
    const std::lock_guard guard(mMutex);
    if (result != FC_OK || mStore->lastStoreError(mFile) == 0)
        return result;
    retryLater();
    return FC_UNAVAILABLE;
}

void KeptDataSet::retryLater()
{
    if (mIsRetrying)
        return;
    try {
        std::thread(&KeptDataSet::retry, this).detach();
        mIsRetrying = true;
    } catch (const std::system_error& error) { // the next store tries again
        DBG_LOG(SEV_ERROR) << "store: thread create failed errno=" << error.code().value();
    }
}

void KeptDataSet::retry()
{
    setTaskName(currentTaskId(), "tKept");
    prctl(PR_SET_NAME, "KeptDataSet");
    for (;;) {
        std::this_thread::sleep_for(kRetryDelay);
        const std::lock_guard guard(mMutex);
        const Fcodes result = mStore->storeDataSet(mDataSet, mFile);
        if (result == FC_OK && mStore->lastStoreError(mFile) != 0)
            continue;
        if (result == FC_OK)
            DBG_LOG(SEV_INFO) << "store: Stored again file=" << mFile;
        mIsRetrying = false;
        return;
    }
}
