#include "Archive.h"
#include "Catalogue.h"
#include "Session.h"
#include "StagedFile.h"
#include "base/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace
{

ArchiveManifest manifestOf(Session& session)
{
    Catalogue catalogue(session.peer());
    ArchiveManifest manifest;
    manifest.autoStart = catalogue.readAutoStart();
    for (const DataRow& row :
         catalogue.readAll({"Description", "File Name", "Time", "State", "Fcode"})) {
        ArchivedConfiguration configuration;
        configuration.name = row.key;
        configuration.row = {row.properties.begin(), row.properties.end()};
        configuration.file = configuration.row["File Name"];
        manifest.configurations.push_back(std::move(configuration));
    }
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
            throw Failure(EXIT_NAME_OR_VALUE, path + " holds a file that is no configuration's");
        archive.extract(-1);
    }
    return archive.manifest();
}

void restore(Session& session, ArchiveReader& archive, const ArchivedConfiguration& configuration)
{
    StagedFile file(configuration.name, session.isDryRun(), [&](const std::string& path) {
        const Descriptor copy(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!copy.isOpen())
            throw Failure(EXIT_STATE_OR_RIGHT,
                          "cannot write " + path + ": " + std::strerror(errno));
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

} // namespace

void runExport(Session& session)
{
    const std::string path = session.call.argument(0);
    if (!session.isDryRun() && std::filesystem::exists(path))
        session.confirm("The file " + inQuotes(path) + " is there, and will be overwritten.");
    ArchiveManifest manifest = manifestOf(session);
    measureFiles(manifest);
    if (!haveSameRows(manifest, manifestOf(session)))
        throw Failure(EXIT_STATE_OR_RIGHT, "the configurations have changed meanwhile",
                      "cfgctl " + session.call.typed());
    writeArchive(path, manifest);
    show(session, manifest);
}

void runRestore(Session& session)
{
    const std::string path = session.call.argument(0);
    const ArchiveManifest manifest = verify(path);
    session.confirm("What is there under the names of the " +
                    std::to_string(manifest.configurations.size()) +
                    " configurations will be overwritten.");
    ArchiveReader archive(path);
    Json::Value& restored = session.out.document()["restored"] = Json::arrayValue;
    const ArchivedConfiguration* configuration = nullptr;
    try {
        while ((configuration = archive.next()) != nullptr) {
            restore(session, archive, *configuration);
            restored.append(Json::objectValue)["name"] = configuration->name;
        }
        if (!manifest.autoStart.empty())
            session.carryOut("SET_AUTOSTART_CFG",
                             {{"RowID", manifest.autoStart}, {"AutoStart", "true"}});
    } catch (Failure& failure) {
        failure.problem = (configuration == nullptr ? "at the auto-start"
                                                    : "at " + inQuotes(configuration->name)) +
                          ", " + std::to_string(restored.size()) + " of " +
                          std::to_string(manifest.configurations.size()) +
                          " are restored: " + failure.problem;
        if (failure.next.empty())
            failure.next = "cfgctl " + session.call.typed();
        throw;
    }
    show(session, manifest);
}
