#include "DataSets.h"

#include "DbgLine.h"
#include "base/AtomicFile.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"
#include "store/CommittedTree.h"
#include "store/DatasetUpdate.h"
#include "store/DocumentText.h"

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <json/reader.h>
#include <stdexcept>
#include <system_error>

namespace
{

constexpr char kUnit[] = "applications/SystemManagement/DataComLib/src/DataSets";

/// The reader throws on text that is nested too deeply; callers see a parse error like any other.
bool parseText(const std::string& text, Json::Value& root, std::string& errors)
{
    Json::Reader reader;
    try {
        if (reader.parse(text, root))
            return true;
        errors = reader.getFormattedErrorMessages();
    } catch (const std::exception& exception) {
        errors = exception.what();
    }
    return false;
}

} // namespace

DataSets::DataSets() : mDataSets(std::make_unique<CommittedTree>())
{
    pthread_mutexattr_t attributes;
    if (const int error = pthread_mutexattr_init(&attributes); error != 0)
        DBG_LOG(SEV_ERROR) << "DataSets: pthread_mutexattr_init failed errno=" << error;
    if (const int error = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        error != 0)
        DBG_LOG(SEV_ERROR)
            << "DataSets: pthread_mutexattr_settype PTHREAD_MUTEX_RECURSIVE failed errno=" << error;
    if (const int error = pthread_mutex_init(&mMutex, &attributes); error != 0)
        DBG_LOG(SEV_ERROR) << "DataSets: pthread_mutex_init failed errno=" << error;
    if (const int error = pthread_mutexattr_destroy(&attributes); error != 0)
        DBG_LOG(SEV_ERROR) << "DataSets: pthread_mutexattr_destroy failed errno=" << error;
}

DataSets::~DataSets()
{
    // Kept on purpose: callers count on being able to destroy the store while they hold lock().
    // Otherwise the call fails with EPERM and changes nothing.
    pthread_mutex_unlock(&mMutex);
    pthread_mutex_destroy(&mMutex);
}

void DataSets::doLock() { pthread_mutex_lock(&mMutex); }

void DataSets::doUnlock() { pthread_mutex_unlock(&mMutex); }

int DataSets::doLastStoreError(const std::string& path)
{
    const std::lock_guard guard(mFileMutex);
    const auto found = mStoredFiles.find(path);
    return found == mStoredFiles.end() ? 0 : found->second.error;
}

Fcodes DataSets::loadDataSet(const std::string& path)
{
    try {
        const Descriptor file(openRegularFile(path));
        if (!file.isOpen()) {
            DBG_LOG(SEV_ERROR) << "loadDataSet: file stream !good" << path;
            return FC_NO_SUCH_NAME;
        }
        Json::Value root;
        if (const Fcodes parseResult = parseDocument(file.get(), path, root); parseResult != FC_OK)
            return parseResult;
        const Json::Value* name = member(&root, "dataset");
        if (name == nullptr) {
            DBG_LOG(SEV_ERROR) << "loadDataSet: Not found key=dataset in file=" << path;
            return FC_NO_SUCH_NAME;
        }
        replaceDocument(name->asString(), root);
        return FC_OK;
    } catch (const std::exception&) {
        DBG_LOG(SEV_ERROR) << "loadDataSet: Exc: Couldn't load dataset file=" << path;
        return FC_UNAVAILABLE;
    }
}

Fcodes DataSets::loadDataSet(const std::string& dataset, const std::string& path)
{
    try {
        const Descriptor file(openRegularFile(path));
        if (!file.isOpen()) {
            DBG_LOG(SEV_ERROR) << "load: file stream !good " << path;
            return FC_NO_SUCH_NAME;
        }
        Json::Value root;
        if (const Fcodes parseResult = parseDocument(file.get(), path, root); parseResult != FC_OK)
            return parseResult;
        replaceDocument(dataset, root);
        return FC_OK;
    } catch (const std::exception&) {
        DBG_LOG(SEV_ERROR) << "loadDataSet: Exc: Couldn't load dataset file=" << path;
        return FC_UNAVAILABLE;
    }
}

Fcodes DataSets::parseDocument(int file, const std::string& path, Json::Value& root)
{
    std::string text;
    if (const int error = readToEnd(file, text); error != 0)
        throw std::system_error(error, std::generic_category());
    Json::Reader reader;
    if (reader.parse(text.data(), text.data() + text.size(), root)) {
        const std::lock_guard guard(*this);
        mLongestText = std::max(mLongestText, text.size());
        return FC_OK;
    }
    DBG_LOG(SEV_ERROR) << "loadDataSet: Failed to parse a dataset from file=" << path
                       << "\n err=" << reader.getFormattedErrorMessages();
    return FC_UNAVAILABLE;
}

void DataSets::replaceDocument(const std::string& dataset, Json::Value& document)
{
    const std::lock_guard guard(*this);
    mDataSets->reshape()[dataset].swap(document);
}

Fcodes DataSets::storeDataSet(const std::string& dataset, const std::string& path)
{
    std::string copy; // quicker to make and smaller than a copy of the tree
    std::uint64_t number = 0;
    {
        const std::lock_guard guard(*this);
        if (const Json::Value* document = member(&mDataSets->get(), dataset);
            document != nullptr && !document->isNull())
            copy = documentText(*document, mLongestText + mLongestText / 16);
        mLongestText = std::max(mLongestText, copy.size());
        number = ++mLastSnapshot;
    }
    if (copy.empty()) {
        DBG_LOG(SEV_ERROR) << "storeDataSet: Not found dataset=" << dataset;
        return FC_NO_SUCH_NAME;
    }

    const std::lock_guard guard(mFileMutex);
    StoredFile& stored = mStoredFiles[path];
    if (number < stored.number)
        return FC_OK; // the file already holds a later state
    const auto [error, inPlace] =
        copy.size() > static_cast<std::size_t>(kLargestFile)
            ? FileWrite{.error = EFBIG} // no load would take it
            : replaceFileAtomically(path, [&copy](std::ostream& file) { file << copy; });
    if (inPlace != 0)
        DBG_LOG(SEV_ERROR) << "storeDataSet: Written in place file=" << path
                           << " errno=" << inPlace;
    if (error == 0)
        stored.number = number;
    else if (error != stored.error) // once for each cause: callers try again
        DBG_LOG(SEV_ERROR) << "storeDataSet: Couldn't write file=" << path << " errno=" << error;
    if (number > stored.latest) { // an older state in the file does not make good a later one
        stored.latest = number;
        stored.error = error;
    }
    // Kept on purpose: callers count on "OK" also when the file could not be written.
    return FC_OK;
}

Fcodes DataSets::addDataSet(const std::string& dataset)
{
    const std::lock_guard guard(*this);
    Json::Value document(Json::objectValue);
    document["dataset"] = dataset;
    document["components"] = Json::Value(Json::objectValue);
    mDataSets->reshape()[dataset].swap(document);
    return FC_OK;
}

Fcodes DataSets::deleteDataSet(const std::string& dataset)
{
    const std::lock_guard guard(*this);
    removeMember(&mDataSets->reshape(), dataset);
    return FC_OK;
}

Fcodes DataSets::updateDataSet(const std::string& src, const std::string& ref, bool keepAbsent,
                               bool mergeProperties, bool replaceInstances)
{
    const std::lock_guard guard(*this);
    DBG_LOG(SEV_ERROR) << "updateDataSet: src=" << src << " ref=" << ref;
    try {
        Json::Value* srcDataSet = member(&mDataSets->reshape(), src);
        if (srcDataSet == nullptr) {
            DBG_LOG(SEV_ERROR) << "updateDataSet: Not found src=" << src;
            return FC_NO_SUCH_NAME;
        }
        Json::Value* srcComponents = member(srcDataSet, "components");
        const Json::Value* refComponents = member(member(&mDataSets->get(), ref), "components");
        if (srcComponents == nullptr || !srcComponents->isObject() || refComponents == nullptr) {
            DBG_LOG(SEV_ERROR) << "updateDataSet: Not found Components in src=" << src
                               << " OR ref=" << ref;
            return FC_NO_SUCH_NAME;
        }
        if (!DatasetUpdate::isReference(*refComponents))
            throw std::invalid_argument("not a reference");
        return DatasetUpdate(src, ref, *srcComponents, *refComponents)
            .run({keepAbsent, mergeProperties, replaceInstances});
    } catch (const std::exception&) {
        DBG_LOG(SEV_ERROR) << "updateDataSet: Exc: Couldn't update dataset src=" << src;
        return FC_UNAVAILABLE;
    }
}

Fcodes DataSets::findDataSetWithComponent(std::string& dataset, const std::string& component)
{
    const std::lock_guard guard(*this);
    for (auto it = mDataSets->get().begin(); it != mDataSets->get().end(); ++it) {
        if (member(member(&*it, "components"), component) != nullptr) {
            dataset = it.name();
            return FC_OK;
        }
    }
    return FC_NO_SUCH_NAME;
}

Fcodes DataSets::addComponent(const std::string& dataset, const std::string& component)
{
    const std::lock_guard guard(*this);
    if (member(&mDataSets->get(), dataset) == nullptr && addDataSet(dataset) != FC_OK) {
        // Kept on purpose: callers count on the store staying locked once more when a derived
        // store refuses the new dataset; they unlock it.
        lock();
        return FC_NO_SUCH_NAME;
    }
    Json::Value* slot = findOrCreateComponent(mDataSets->reshape(), dataset, component);
    if (slot == nullptr)
        return FC_WRONG_TYPE;
    *slot = Json::Value(Json::objectValue);
    (*slot)["properties"] = Json::Value(Json::objectValue);
    return FC_OK;
}

Fcodes DataSets::deleteComponent(const std::string& dataset, const std::string& component)
{
    const std::lock_guard guard(*this);
    if (findComponent(mDataSets->get(), dataset, component) == nullptr)
        return FC_NO_SUCH_NAME;
    removeMember(member(member(&mDataSets->reshape(), dataset), "components"), component);
    return FC_OK;
}

Fcodes DataSets::loadComponent(const std::string& dataset, const std::string& component,
                               const std::string& text)
{
    Json::Value root;
    std::string errors;
    if (!parseText(text, root, errors)) {
        std::cout << "Failed to parse text:\n" << text << "\nerror=" << errors << std::flush;
        return FC_UNAVAILABLE;
    }

    const std::lock_guard guard(*this);
    if (member(&mDataSets->get(), dataset) == nullptr)
        addDataSet(dataset);
    Json::Value* slot = findOrCreateComponent(mDataSets->reshape(), dataset, component);
    if (slot == nullptr)
        return FC_WRONG_TYPE;
    slot->swap(root);
    return FC_OK;
}

Fcodes DataSets::getComponentSize(const std::string& dataset, const std::string& component,
                                  int& size)
{
    const std::lock_guard guard(*this);
    const Json::Value* instances =
        member(findComponent(mDataSets->get(), dataset, component), "instances");
    if (instances == nullptr)
        return FC_NO_SUCH_NAME;
    size = static_cast<int>(instances->size());
    return FC_OK;
}

Fcodes DataSets::onGetDataset(const std::string&) { return FC_OK; }

Fcodes DataSets::onGetComponent(const std::string&, const std::string&) { return FC_OK; }

Fcodes DataSets::onGetComponentEntry(const std::string&, const std::string&, const std::string&)
{
    return FC_OK;
}

Fcodes DataSets::onGetComponentEntry(const std::string&, const std::string&, int) { return FC_OK; }

Fcodes DataSets::onGetComponentValue(const std::string&, const std::string&, const std::string&,
                                     const std::string&)
{
    return FC_OK;
}

Fcodes DataSets::onGetComponentValue(const std::string&, const std::string&, const std::string&,
                                     int)
{
    return FC_OK;
}
