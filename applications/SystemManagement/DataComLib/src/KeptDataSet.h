#pragma once

// A dataset that outlives a reboot. The application loads it where it makes its store, and
// commits through it:
//
//     IDataSets* createDataSets() override
//     {
//         IDataSets* store = DataHolder::createDataSets();
//         mSettings.load(*store);
//         return store;
//     }
//     Fcodes acceptChanges() override { return mSettings.commit(); }
//
//     KeptDataSet mSettings{"FanDataSet", "/data/fan_data_set.json", kFactory};
//
// The file is replaced as a whole, so a power cut leaves the old one or the new one; who changes it
// by hand stops the application first.
//
// load() comes first, and once, before other threads use the store. From then on any thread may
// call the others, and both this object and the store live as long as the process: after a failure
// a thread of its own stores again.

#include "Fcodes.h"

#include <json/forwards.h>
#include <mutex>
#include <string>

class IDataSets;

/// A factory document that is installed beside the program. It is read when the KeptDataSet is
/// made; when that fails there is no factory document.
struct FactoryFile {
    std::string path; ///< Absolute: a daemon's directory is "/".
};

class KeptDataSet
{
public:
    /// `factory` is the dataset as the program ships it, in the form of docs/datasets.md: its text
    /// or its file. The member "dataset" is not looked at.
    KeptDataSet(std::string dataset, std::string file, std::string factory);
    KeptDataSet(std::string dataset, std::string file, const FactoryFile& factory);

    KeptDataSet(const KeptDataSet&) = delete;
    KeptDataSet& operator=(const KeptDataSet&) = delete;

    /// Puts the dataset into the store: the one in the file, brought up to date with the factory's
    /// as by IDataSets::updateDataSet(…, false, true, false), or without a file the factory's own.
    /// Properties and components are then those of the factory, values those of the file; an
    /// instance that only the factory has does not come to a component that is in the file.
    ///
    /// FC_OK; FC_UNAVAILABLE when the file holds no such dataset: the factory's is in use, and the
    /// file is renamed to end in ".damaged", in place of an earlier one; FC_BODY_ERROR when the
    /// factory document has no components: then what is in the file is used as it is, or else
    /// nothing is in the store. All but FC_OK is logged.
    Fcodes load(IDataSets& store);

    /// Makes what is pending in the store take effect, of all datasets, and then stores this one.
    /// Results as of store(); what commit() of the store itself gives is joined.
    Fcodes commit();

    /// Writes the committed values and waits for the disk. FC_OK; FC_UNAVAILABLE when the disk
    /// refuses, or before load(): the file keeps what it had, and it is written again every 10 s
    /// until that works, with a log line; FC_NO_SUCH_NAME when the dataset is no longer in the
    /// store.
    Fcodes store();

private:
    bool loadFile(const Json::Value& factory);
    void setAside();
    void retryLater();
    void retry();

    const std::string mDataSet;
    const std::string mFile;
    const std::string mFactory;  // text
    IDataSets* mStore = nullptr; // set once by load()

    std::mutex mMutex; // guards mIsRetrying
    bool mIsRetrying = false;
};
