#pragma once

// What is remembered of a change that touches both a configuration's file and its row, so that the
// next start can bring the two together again when the daemon or the device stops half-way. Plain
// data and its text form; where the text is kept is the business of ChangeJournal.

#include "CfgFiles.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A row of the catalogue: its properties, each as text.
using CatalogueRow = std::map<std::string, std::string>;

/// In the record of an import: nothing stood in the place of its file.
inline constexpr char kNoOneReplaced[] = "none";

struct ChangeRecord {
    enum class Kind {
        SAVE,    ///< The file at `file` is deleted, the channel manager writes a new one.
        IMPORT,  ///< The file at `file` is moved to the place of `name`.
        RENAME,  ///< The file at `file` is moved to the place of `newName`.
        REMOVE,  ///< The file at `file` is deleted, and the row of `name`.
        UNSTORED ///< The row `after` (none: it is removed) is acknowledged, but not on disk.
    };

    Kind kind = Kind::SAVE;
    std::uint64_t number = 0; ///< Given by the journal; later changes have higher ones.
    std::string name;         ///< Key of the row.
    std::string newName;      ///< Key after a RENAME, else empty.
    std::string file;
    bool answered = false; ///< SAVE: the channel manager said OK, nothing is put back.
    std::string boot;      ///< SAVE: of the system, while the outcome is open, else "".
                           ///< IMPORT: kNoOneReplaced, else "".
    std::string kept;      ///< Second link to the file that is replaced, "" for none.
    FileStamp moved;       ///< Of the file that is moved, or that a SAVE finds.
    std::optional<CatalogueRow> before; ///< The row of `name` (IMPORT: that it replaces), if any.
    std::optional<CatalogueRow> after;  ///< The row that the change writes first.
    std::string autoStartBefore;
    std::string autoStartAfter;

    /// A save over a configuration, which comes back when the save fails. One without a file before
    /// it is a new one: its row goes if no file comes.
    bool replaces() const { return before && !kept.empty(); }

    bool concerns(const std::string& key) const
    {
        return !key.empty() && (name == key || newName == key);
    }
};

/// The text form: fields of any bytes, each behind its length. Reading gives nothing at all for a
/// text that is not whole.
std::string toText(const std::vector<ChangeRecord>& records);
std::optional<std::vector<ChangeRecord>> readChangeRecords(std::string_view text);
