#pragma once

// A file on its way into the catalogue. The manager takes the file that it is given away, and may
// run as a user who cannot read or delete the operator's: it gets a copy, in a directory that it
// can move from. One thread.

#include <functional>
#include <string>

class StagedFile
{
public:
    /// Copies the regular file, unless the file itself is to go. Throws Failure when there is none,
    /// or it cannot be copied.
    StagedFile(const std::string& file, bool isToGo, bool isDryRun);

    /// Calls `write` with the path of a new file of that name, to be made.
    StagedFile(const std::string& name, bool isDryRun,
               const std::function<void(const std::string& path)>& write);

    /// Removes what is left of the copy.
    ~StagedFile();

    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    /// Absolute; what the manager is to take.
    const std::string& path() const { return mPath; }

    /// The copy stays, whatever comes.
    void leave() { mDirectory.clear(); }

private:
    void stage(const std::string& name, const std::function<void(const std::string& path)>& write);

    std::string mPath;
    std::string mDirectory; // of the copy; "" without one
};
