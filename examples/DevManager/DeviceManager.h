#pragma once

// A device manager: it keeps the device's time zone, also over a reboot, serves it to peers and
// announces each change to its subscribers; and it holds a table of sensors, whose limits peers may
// set. A small application on DataComLib: one dataset, one table, two commands, one event. The
// configuration manager takes the zone for its times; the log lines of this process keep the
// system's.
//
// Made once by main() and never destroyed before the process ends. start() runs on the main thread;
// execute() on the communicator's thread, one command at a time.

#include "DataSet.h"
#include "KeptDataSet.h"
#include "TableHolder.h"

#include <string>

class DeviceManager : public TableHolder
{
public:
    /// An empty zone is the one that was kept in the file, at first UTC.
    DeviceManager(std::string zone, std::string file);

    /// Serves the two sockets from here on.
    void start(const std::string& socket, const std::string& sendSocket);

    /// The store, with the device's dataset in it.
    IDataSets* createDataSets() override;

    /// "SET_TIME_ZONE" with the parameter "TZ": FC_BODY_ERROR without it, FC_BAD_VALUE for an empty
    /// one, FC_UNAVAILABLE for one that is in force but could not be stored; a change is announced
    /// ("Date&Time Updated"). "APPLY_LIMITS" makes the limits that peers have set take effect. It
    /// takes a command of the application's own for that: "Accept Changes" and "Rollback Changes"
    /// do nothing when a peer sends them, see DataHolder::doExecute().
    Fcodes execute(const std::string& command, std::string& result) override;

    /// Nobody sends events to this manager.
    Fcodes doHandle(MessageEvent* /*event*/) override { return FC_OK; }

private:
    Fcodes setZone(const std::string& command);
    void announceZone(const std::string& zone);

    std::string mFirstZone;
    KeptDataSet mKept; // the zone, over a reboot
    DataSet mSensors;  // read and written by peers, see TableHolder
};
