#pragma once

// A change of the catalogue that touches files, from before its first effect to its end: recorded
// on the disk meanwhile, and put back or completed by the next start when it is cut off. Commands
// make one each; it begins with its constructor. One that goes out of scope without an end stays
// recorded. Where nothing can be recorded, the change goes on without, and the log says so once a
// start.

#include "ConfigurationsTable.h"

class CatalogueChange
{
public:
    /// The row of `name` is to be saved anew, over the one that is there if any, and becomes the
    /// auto-start if so wanted.
    static CatalogueChange save(ConfigurationsTable table, const std::string& name,
                                bool becomesAutoStart);

    /// The file is to be moved to the place of `name`, or of `newName`; `description` goes into the
    /// row.
    static CatalogueChange import(ConfigurationsTable table, const std::string& name,
                                  const std::string& source, const std::string& description,
                                  bool becomesAutoStart);
    static CatalogueChange rename(ConfigurationsTable table, const std::string& name,
                                  const std::string& newName, const std::string& file,
                                  const std::string& description);

    /// Row and file are to be deleted, and the auto-start cleared if it names the row and is not to
    /// stay.
    static CatalogueChange remove(ConfigurationsTable table, const std::string& name,
                                  bool autoStartStays);

    CatalogueChange(const CatalogueChange&) = delete;
    CatalogueChange& operator=(const CatalogueChange&) = delete;

    /// A save whose old file could have no second link: moves it there, in place of its deletion.
    bool moveAway(const std::string& file);

    /// A save whose old file could not be deleted: what is written into that now must not reach the
    /// one that is kept.
    void keepCopy();

    /// A save: the channel manager has answered OK, and what follows is not put back any more.
    void confirmAnswer();

    /// All is done, and stored; where the disk has refused that, the rows stay recorded until a
    /// store succeeds.
    void end();

    /// The end of a removal. Where the file could not be deleted it stays recorded: the next start
    /// brings the configuration back as it was, or another change of the name takes its place.
    void endRemoval();

    /// A save that the channel manager has refused: what was there before comes back, file, row and
    /// auto-start, with `code` as the outcome. A new row stays without a file; the next start takes
    /// it away.
    void fail(Fcodes code);

    /// A move after which nothing has arrived: what was at the target comes back.
    void abandon();

private:
    CatalogueChange(ConfigurationsTable table, ChangeRecord record, const std::string& replaced);

    void removeArrived(const std::string& path) const;

    ConfigurationsTable mTable;
    ChangeRecord mRecord;
    bool mIsNewFile; // of an import
};

/// Rows that have changed (none: an empty name), and the auto-start, while the disk refused the
/// catalogue: they stay recorded until a store succeeds, in place of the record `number` (0: of
/// none).
void recordUnstored(ConfigurationsTable table, std::uint64_t number,
                    const std::vector<std::string>& names);
