#pragma once

// A file on its way into the catalogue. The manager takes the file that it is given away, and may
// run as a user who cannot read or delete the operator's: it gets a copy, in a directory that it
// can move from. One thread.

#include "Leftover.h"

#include <functional>
#include <optional>
#include <string>

class StagedFile
{
public:
    /// Copies the regular file, unless the file itself is to go. Throws Failure when there is none,
    /// or it cannot be copied. In a dry run nothing is made, and path() has letters by chance as
    /// "XXXXXX".
    StagedFile(const std::string& file, bool isToGo, bool isDryRun);

    /// Calls `write` with the path of a new file of that name, to be made.
    StagedFile(const std::string& name, bool isDryRun,
               const std::function<void(const std::string& path)>& write);

    // What is left of the copy is removed with the object.

    /// Absolute; what the manager is to take.
    const std::string& path() const { return mPath; }

    /// The copy stays, whatever comes.
    void leave();

private:
    void stage(const std::string& name, bool isDryRun,
               const std::function<void(const std::string& path)>& write);

    std::string mPath;
    std::optional<Leftover> mDirectory; // of the copy, where there is one
    std::optional<Leftover> mCopy;
};
