#include "Daemon.h"
#include "Peers.h"

#ifdef BENCH_SQLITE

#include <filesystem>
#include <sqlite3.h>

namespace
{

void run(sqlite3* database, const std::string& statement)
{
    if (sqlite3_exec(database, statement.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        abortBenchmarks(std::string("SQLite: ") + sqlite3_errmsg(database));
}

} // namespace

PeerWork sqliteChange(const std::string& directory, int rows)
{
    std::filesystem::create_directories(directory);
    sqlite3* opened = nullptr;
    sqlite3_open((directory + "/catalogue.db").c_str(), &opened);
    const std::shared_ptr<sqlite3> database(opened, sqlite3_close_v2);
    run(opened, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; CREATE TABLE Configurations "
                "(Name TEXT PRIMARY KEY, Description TEXT, AutoStart INTEGER); BEGIN");
    for (int row = 0; row < rows; ++row)
        run(opened, "INSERT INTO Configurations VALUES ('" + rowName(row) + "', '" + peerText(row) +
                        "', 0)");
    run(opened, "COMMIT");

    sqlite3_stmt* prepared = nullptr;
    sqlite3_prepare_v2(opened, "UPDATE Configurations SET AutoStart = 1 - AutoStart WHERE Name = ?",
                       -1, &prepared, nullptr);
    const std::shared_ptr<sqlite3_stmt> update(prepared, sqlite3_finalize);
    return {.system = "SQLite, WAL", .work = [database, update, name = rowName(1)] {
                sqlite3_bind_text(update.get(), 1, name.c_str(), -1, SQLITE_STATIC);
                if (sqlite3_step(update.get()) != SQLITE_DONE ||
                    sqlite3_changes(database.get()) != 1)
                    abortBenchmarks("SQLite does not change a row");
                sqlite3_reset(update.get());
            }};
}

#else

PeerWork sqliteChange(const std::string& /*directory*/, int /*rows*/)
{
    return {.system = "SQLite, WAL", .missing = kNotInstalled};
}

#endif
