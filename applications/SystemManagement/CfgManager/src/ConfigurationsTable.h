#pragma once

// The catalogue of stored configurations as it stands in the holder's store: the rows of
// "ConfigurationsTable", one a configuration, keyed by its name, and the name of the configuration
// that starts at boot.
//
// A view of the holder: made where it is needed, at the cost of a reference. The holder outlives it
// and has been initialised. Any thread may call; each read or write of a property is one step of
// the store. Nothing is logged here, and nothing is on disk before store().

#include "ChangeRecord.h"
#include "Fcodes.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

class DataHolder;

inline constexpr char kCfgDataSet[] = "CfgDataSet";
inline constexpr char kConfigurationsTable[] = "ConfigurationsTable";

/// Values of a row's "State"; the description of a configuration that was given none.
inline constexpr char kAvailable[] = "Available";
inline constexpr char kInprogress[] = "Inprogress";
inline constexpr char kUnavailable[] = "Unavailable";
inline constexpr char kNoDescription[] = " ";

/// Where the rows of a start come from.
enum class CatalogueSource {
    STORED,
    FACTORY,
    WIPED ///< A catalogue of the older format stood there: the directory has been emptied.
};

class ConfigurationsTable
{
public:
    explicit ConfigurationsTable(DataHolder& holder) : mHolder(holder) {}

    /// Loads the stored catalogue and completes it from the factory's; where none is stored, or it
    /// cannot be read, the factory's becomes the catalogue, and what was there goes aside: `copy`
    /// is its new path, or stays empty. With neither there are no rows.
    CatalogueSource load(std::string& copy);

    /// Writes the catalogue to its file. FC_OK also when the disk refuses, see CatalogueStore;
    /// FC_NO_SUCH_NAME when there is no catalogue.
    Fcodes store();

    /// keys() lists the rows in the store's order; empty without a catalogue. add() and remove()
    /// work on whole rows, at once and with the store's codes; add() of a key that exists sets its
    /// row back to the defaults.
    std::vector<std::string> keys() const;
    bool has(const std::string& rowId) const;
    Fcodes add(const std::string& rowId);
    Fcodes remove(const std::string& rowId);

    /// A whole row: all its properties that have a definition, nothing when there is no row. A
    /// write replaces the row of that key; the results joined.
    std::optional<CatalogueRow> readRow(const std::string& rowId) const;
    Fcodes writeRow(const std::string& rowId, const CatalogueRow& row);

    /// The first row whose "File Name" is `file`; FC_UNAVAILABLE, and an empty key, when there is
    /// none.
    Fcodes getRowIdByFilename(const std::string& file, std::string& rowId) const;

    /// A text property of a row: FC_NO_SUCH_NAME when row or property is missing, FC_WRONG_TYPE
    /// when the catalogue has something else than a text there; a read then leaves `value`
    /// untouched.
    Fcodes readText(const std::string& rowId, const char* property, std::string& value) const;
    Fcodes writeText(const std::string& rowId, const char* property, const std::string& value);

    /// "State" and "Fcode" of a row; the results joined.
    Fcodes writeStateAndFcode(const std::string& rowId, const char* state, Fcodes code);
    Fcodes writeFcode(const std::string& rowId, Fcodes code);

    /// Every property of the row of a configuration whose file is in place and was last changed at
    /// `modified`; the results joined.
    Fcodes fillFileRow(const std::string& name, const std::string& description,
                       std::time_t modified);

    /// The key of the row that starts at boot, "" for none. Whether there is such a row is not
    /// checked.
    Fcodes readAutoStart(std::string& rowId) const;
    Fcodes writeAutoStart(const std::string& rowId);

private:
    DataHolder& mHolder;
};
