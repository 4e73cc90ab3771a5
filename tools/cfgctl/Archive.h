#pragma once

// The archive of a device's configurations: a tar file with "manifest.json" first, which holds the
// rows, the auto-start and the checksums, its own checksum in "manifest.sha256", and behind them
// the files as "configurations/NAME", in the manifest's order. Any tar shows and unpacks it. One
// thread an object.

#include "Failure.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct archive;
struct archive_entry;

struct ArchivedConfiguration {
    std::string name;
    std::map<std::string, std::string> row; ///< its properties as the catalogue had them
    std::string file;                       ///< where it is read from; not in the archive
    std::int64_t modified = 0;              ///< when the file was written last, s since 1970
    std::int64_t size = 0;                  ///< of the file, in bytes
    std::string sha256;                     ///< of the file, in hexadecimal
};

struct ArchiveManifest {
    std::string autoStart; ///< "" for none
    std::vector<ArchivedConfiguration> configurations;
};

// All throw Failure: EXIT_NAME_OR_VALUE for files that cannot be read or written, or are no such
// archive, EXIT_STATE_OR_RIGHT for a missing right and for a configuration that is being written.

/// Fills in what the manifest says of the files.
void measureFiles(ArchiveManifest& manifest);

/// The archive is at `path`, whole and on the disk, or nothing has changed there. Only files that
/// are as they were measured go into it.
void writeArchive(const std::string& path, const ArchiveManifest& manifest);

class ArchiveReader
{
public:
    /// Reads the manifest.
    explicit ArchiveReader(const std::string& path);

    const ArchiveManifest& manifest() const { return mManifest; }

    /// The next configuration; null behind the last. The archive must have those of its manifest,
    /// in that order.
    const ArchivedConfiguration* next();

    /// Writes the file of the last next() to the descriptor, unless that is -1, and compares it
    /// with its checksum.
    void extract(int fd);

private:
    struct Close {
        void operator()(archive* reader) const;
    };

    [[noreturn]] void fail(const std::string& what) const;
    bool nextEntry();
    std::string readWhole(const char* name);

    std::string mPath;
    std::unique_ptr<archive, Close> mArchive;
    archive_entry* mEntry = nullptr;
    ArchiveManifest mManifest;
    std::size_t mNext = 0;
};
