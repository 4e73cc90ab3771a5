#pragma once

// What the channel manager has loaded last, in the catalogue's component "RunningConfiguration":
// "Name", empty when that is unknown, and "Fallback", true for the default channels of a boot,
// whose name is "Default". In a catalogue without the component, or without its single instance,
// every operation does nothing.
//
// A view of the holder, as ConfigurationsTable is. Any thread may call: each operation is one step.
// Nothing is logged here but by the store where the instance lacks a property, and nothing stored:
// what is written goes to the disk with the catalogue's next change.

#include "Fcodes.h"

#include <string>

class DataHolder;

class RunningConfiguration
{
public:
    explicit RunningConfiguration(DataHolder& holder) : mHolder(holder) {}

    /// Before the first load of a start: what an earlier run has stored is no longer true.
    void forget();

    /// A load has ended with `result`: of the configuration `rowId`, or of the boot's fallback. OK
    /// makes it what runs, unless its row has gone meanwhile. A refusal leaves what runs, and after
    /// FC_COMM_ERROR, no answer, nobody knows.
    void loaded(const std::string& rowId, Fcodes result);
    void loadedFallback(Fcodes result);

    /// The row has got another name, or has gone.
    void renamed(const std::string& rowId, const std::string& newRowId);
    void removed(const std::string& rowId);

private:
    bool exists() const;
    bool isRunning(const std::string& rowId) const;
    void write(const std::string& name, bool isFallback);

    DataHolder& mHolder;
};
