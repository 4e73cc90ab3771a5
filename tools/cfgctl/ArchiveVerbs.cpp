#include "Archive.h"
#include "Catalogue.h"
#include "Session.h"
#include "StagedFile.h"
#include "base/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace
{

/// What a restore can bring back: the names of the others are added to `leftOut`.
ArchiveManifest manifestOf(Session& session, std::vector<std::string>& leftOut)
{
    Catalogue catalogue(session.peer());
    ArchiveManifest manifest;
    manifest.autoStart = catalogue.readAutoStart();
    Listing listing = catalogue.readAll({"Description", "File Name", "Time", "State", "Fcode"});
    leftOut = std::move(listing.leftOut);
    for (const DataRow& row : listing.rows) {
        const std::string* const text = row.find("Description");
        if (!isValidText(row.key) || (text != nullptr && !isValidText(*text))) {
            leftOut.push_back(row.key);
            continue;
        }
        ArchivedConfiguration configuration;
        configuration.name = row.key;
        configuration.row = {row.properties.begin(), row.properties.end()};
        configuration.file = configuration.row["File Name"];
        manifest.configurations.push_back(std::move(configuration));
    }
    if (std::ranges::find(leftOut, manifest.autoStart) != leftOut.end())
        manifest.autoStart.clear();
    return manifest;
}

bool haveSameRows(const ArchiveManifest& left, const ArchiveManifest& right)
{
    return left.autoStart == right.autoStart &&
           std::ranges::equal(left.configurations, right.configurations,
                              [](const auto& one, const auto& other) {
                                  return one.name == other.name && one.row == other.row;
                              });
}

void show(Session& session, const ArchiveManifest& manifest)
{
    Json::Value object;
    object["file"] = session.call.argument(0);
    object["configurationCount"] = static_cast<Json::UInt64>(manifest.configurations.size());
    object["autoStart"] = manifest.autoStart;
    constexpr Column kLines[] = {
        {"Archive", "file"}, {"Configurations", "configurationCount"}, {"Auto-start", "autoStart"}};
    session.out.record(kLines, object);
}

std::string description(const ArchivedConfiguration& configuration)
{
    const auto found = configuration.row.find("Description");
    return found == configuration.row.end() ? " " : found->second;
}

/// Everything that can be found out before the first change.
ArchiveManifest verify(const std::string& path)
{
    ArchiveReader archive(path);
    while (const ArchivedConfiguration* const configuration = archive.next()) {
        requireValidText(configuration->name);
        requireValidText(description(*configuration));
        if (std::filesystem::path(configuration->name).filename() != configuration->name)
            throw Failure(EXIT_NAME_OR_VALUE, path + " holds a file that is no configuration's",
                          "tar -tvf " + shellQuoted(path));
        archive.extract(-1);
    }
    return archive.manifest();
}

void restore(Session& session, ArchiveReader& archive, const ArchivedConfiguration& configuration)
{
    StagedFile file(configuration.name, session.isDryRun(), [&](const std::string& path) {
        const Descriptor copy(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!copy.isOpen())
            throw fileFailure("cannot write", path, errno);
        archive.extract(copy.get());
        const timespec times[] = {{configuration.modified, 0}, {configuration.modified, 0}};
        futimens(copy.get(), times); // the catalogue shows it; without it, the time of the restore
    });
    try {
        session.carryOut("Import Configuration", {{"File", file.path()},
                                                  {"Description", description(configuration)},
                                                  {"AutoStart", "false"}});
    } catch (const Failure& failure) {
        if (failure.mayBeDone)
            file.leave();
        throw;
    }
}

/// An archive without one says that there was none.
void restoreAutoStart(Session& session, const std::string& name)
{
    session.carryOut("SET_AUTOSTART_CFG", {{"RowID", name.empty() ? "none" : name},
                                           {"AutoStart", name.empty() ? "false" : "true"}});
}

void restoreAll(Session& session, const ArchiveManifest& manifest)
{
    ArchiveReader archive(session.call.argument(0));
    Json::Value& restored = session.out.document()["restored"] = Json::arrayValue;
    DryRun dryRun{session.socket(), {}};
    std::string where;
    ProgressNote progress("restoring");
    const auto doOrTell = [&](const auto& step) {
        try {
            step();
            return true;
        } catch (const DryRun& one) {
            dryRun.datagrams.push_back(one.datagrams.front());
            return false;
        }
    };
    try {
        while (const ArchivedConfiguration* const configuration = archive.next()) {
            where = inQuotes(configuration->name);
            progress.show(restored.size(), manifest.configurations.size());
            if (doOrTell([&] { restore(session, archive, *configuration); }))
                restored.append(Json::objectValue)["name"] = configuration->name;
        }
        where = "the auto-start";
        doOrTell([&] { restoreAutoStart(session, manifest.autoStart); });
    } catch (Failure& failure) {
        failure.problem = "at " + where + ", " + std::to_string(restored.size()) + " of " +
                          std::to_string(manifest.configurations.size()) +
                          " are restored: " + failure.problem;
        Invocation again = session.call;
        if (session.deadline.isOver())
            again.options["timeout"] = std::to_string(2 * session.deadline.seconds());
        if (failure.next.empty() || session.deadline.isOver())
            failure.next = "cfgctl " + again.typed();
        throw;
    }
    if (session.isDryRun())
        throw DryRun(dryRun);
}

} // namespace

void runExport(Session& session)
{
    const std::string path = session.call.argument(0);
    struct stat there;
    const bool isThere = lstat(path.c_str(), &there) == 0;
    if (!isThere && errno == EACCES)
        throw fileFailure("cannot write", path, EACCES);
    if (!session.isDryRun() && isThere)
        session.confirm("The file " + inQuotes(path) + " is there, and will be overwritten.");
    try {
        std::vector<std::string> leftOut;
        ArchiveManifest manifest = manifestOf(session, leftOut);
        measureFiles(manifest);
        if (!haveSameRows(manifest, manifestOf(session, leftOut)))
            throw Failure(EXIT_STATE_OR_RIGHT, "the configurations have changed meanwhile");
        writeArchive(path, manifest);
        show(session, manifest);
        session.out.document()["leftOut"] = namesAsJson(leftOut);
        if (!leftOut.empty())
            throw leftOutFailure("the archive is made, but leaves out", leftOut);
    } catch (Failure& failure) {
        if (failure.next.empty() && failure.code == FC_OK)
            failure.next = "cfgctl " + session.call.typed();
        throw;
    }
}

void runRestore(Session& session)
{
    const ArchiveManifest manifest = verify(session.call.argument(0));
    session.confirm("What is there under the names of the " +
                    std::to_string(manifest.configurations.size()) +
                    " configurations will be overwritten, and " +
                    (manifest.autoStart.empty() ? "nothing" : inQuotes(manifest.autoStart)) +
                    " will be started at boot.");
    restoreAll(session, manifest);
    show(session, manifest);
}
