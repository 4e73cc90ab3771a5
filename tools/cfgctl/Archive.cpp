#include "Archive.h"

#include "CommandLine.h"
#include "base/AtomicFile.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"
#include "terminal/TerminalText.h"

#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <json/json.h>
#include <memory>
#include <ostream>
#include <sha2.h>
#include <sstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace
{

constexpr char kManifest[] = "manifest.json";
constexpr char kManifestSum[] = "manifest.sha256"; // as sha256sum writes it
constexpr char kFiles[] = "configurations/";
constexpr int kVersion = 1;
constexpr la_int64_t kLargestManifest = la_int64_t{64} << 20;
constexpr std::size_t kChunk = 65536;

using Writer = std::unique_ptr<archive, decltype(&archive_write_free)>;
using Entry = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;

class Checksum
{
public:
    Checksum() { SHA256Init(&mContext); }

    void add(const void* bytes, std::size_t count)
    {
        SHA256Update(&mContext, static_cast<const std::uint8_t*>(bytes), count);
    }

    std::string text()
    {
        std::array<char, SHA256_DIGEST_STRING_LENGTH> digits;
        return SHA256End(&mContext, digits.data());
    }

private:
    SHA2_CTX mContext;
};

// Names and descriptions may be any bytes, JSON takes UTF-8 only: others are {"hex": "..."}.

Json::Value toJson(const std::string& text)
{
    if (toUtf8(text) == text)
        return text;
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        hex += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    Json::Value value;
    value["hex"] = hex;
    return value;
}

/// Throws what the JSON library throws for another shape.
std::string toText(const Json::Value& value)
{
    if (!value.isObject())
        return value.isString() ? value.asString() : throw Json::LogicError("no text");
    const std::string hex = value["hex"].asString();
    std::string text(hex.size() / 2, '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned byte = 0;
        std::from_chars(&hex[2 * i], &hex[2 * i] + 2, byte, 16);
        text[i] = static_cast<char>(byte);
    }
    return text;
}

std::string manifestText(const ArchiveManifest& manifest)
{
    Json::Value root;
    root["version"] = kVersion;
    root["auto_start"] = toJson(manifest.autoStart);
    Json::Value& list = root["configurations"] = Json::Value(Json::arrayValue);
    for (const ArchivedConfiguration& configuration : manifest.configurations) {
        Json::Value one;
        one["name"] = toJson(configuration.name);
        one["sha256"] = configuration.sha256;
        one["size"] = Json::Int64{configuration.size};
        for (const auto& [property, value] : configuration.row)
            one["row"][property] = toJson(value);
        list.append(std::move(one));
    }
    return root.toStyledString();
}

ArchiveManifest readManifest(const std::string& text)
{
    Json::Value root;
    std::istringstream(text) >> root;
    if (root["version"] != kVersion)
        throw Json::LogicError("another version");
    ArchiveManifest manifest;
    manifest.autoStart = toText(root["auto_start"]);
    for (const Json::Value& one : root["configurations"]) {
        ArchivedConfiguration configuration;
        configuration.name = toText(one["name"]);
        configuration.sha256 = one["sha256"].asString();
        configuration.size = one["size"].asInt64();
        const Json::Value& row = one["row"];
        for (const std::string& property : row.getMemberNames())
            configuration.row[property] = toText(row[property]);
        manifest.configurations.push_back(std::move(configuration));
    }
    return manifest;
}

/// Hands the bytes of the configuration's file to `take`.
template <typename Take>
void readFile(const ArchivedConfiguration& configuration, struct stat& status, const Take& take)
{
    const std::string& path = configuration.file;
    const auto fail = [&] {
        if (errno == ENOENT)
            throw Failure(EXIT_NAME_OR_VALUE,
                          "the configuration " + inQuotes(configuration.name) + " has no file " +
                              path + ", and an archive holds whole ones only",
                          "cfgctl remove " + quotedArgument(configuration.name));
        throw groupFailure("cannot read", path, errno, "read configurations");
    };
    const Descriptor file(openRegularFile(path));
    if (!file.isOpen() || fstat(file.get(), &status) == -1)
        fail();
    std::array<char, kChunk> chunk;
    for (;;) {
        const ssize_t got =
            uninterrupted([&] { return read(file.get(), chunk.data(), chunk.size()); });
        if (got == -1)
            fail();
        if (got <= 0)
            return;
        take(chunk.data(), static_cast<std::size_t>(got));
    }
}

/// Fills in what the manifest says of a file.
void measure(ArchivedConfiguration& configuration)
{
    struct stat status;
    Checksum checksum;
    configuration.size = 0;
    readFile(configuration, status, [&](const char* bytes, std::size_t count) {
        checksum.add(bytes, count);
        configuration.size += static_cast<std::int64_t>(count);
    });
    configuration.modified = status.st_mtime;
    configuration.sha256 = checksum.text();
}

void requireOk(archive* writer, la_ssize_t result)
{
    if (result < ARCHIVE_WARN)
        throw Failure(EXIT_INTERNAL,
                      std::string("cannot write the archive: ") + archive_error_string(writer));
}

void startEntry(archive* writer, const std::string& path, std::int64_t size, std::int64_t modified)
{
    const Entry entry(archive_entry_new(), &archive_entry_free);
    archive_entry_set_pathname(entry.get(), path.c_str());
    archive_entry_set_size(entry.get(), size);
    archive_entry_set_mtime(entry.get(), modified, 0);
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0600);
    requireOk(writer, archive_write_header(writer, entry.get()));
}

void writeFile(archive* writer, const ArchivedConfiguration& configuration)
{
    startEntry(writer, kFiles + configuration.name, configuration.size, configuration.modified);
    struct stat status;
    Checksum checksum;
    readFile(configuration, status, [&](const char* bytes, std::size_t count) {
        checksum.add(bytes, count);
        requireOk(writer, archive_write_data(writer, bytes, count));
    });
    if (checksum.text() != configuration.sha256)
        throw Failure(EXIT_STATE_OR_RIGHT, configuration.file + " is being written; try again");
}

void writeText(archive* writer, const char* name, const std::string& text)
{
    startEntry(writer, name, static_cast<std::int64_t>(text.size()), std::time(nullptr));
    requireOk(writer, archive_write_data(writer, text.data(), text.size()));
}

std::string sumLine(const std::string& manifest)
{
    Checksum checksum;
    checksum.add(manifest.data(), manifest.size());
    return checksum.text() + "  " + kManifest + '\n';
}

la_ssize_t writeToStream(archive*, void* stream, const void* bytes, std::size_t count)
{
    static_cast<std::ostream*>(stream)->write(static_cast<const char*>(bytes),
                                              static_cast<std::streamsize>(count));
    return static_cast<la_ssize_t>(count); // the stream remembers a failure
}

void writeAll(std::ostream& out, const ArchiveManifest& manifest)
{
    const Writer writer(archive_write_new(), &archive_write_free);
    // The format whose names are bytes, in any locale.
    requireOk(writer.get(), archive_write_set_format_gnutar(writer.get()));
    requireOk(writer.get(),
              archive_write_open(writer.get(), &out, nullptr, &writeToStream, nullptr));
    const std::string text = manifestText(manifest);
    writeText(writer.get(), kManifest, text);
    writeText(writer.get(), kManifestSum, sumLine(text));
    for (const ArchivedConfiguration& configuration : manifest.configurations)
        writeFile(writer.get(), configuration);
    requireOk(writer.get(), archive_write_close(writer.get()));
}

} // namespace

void measureFiles(ArchiveManifest& manifest)
{
    for (ArchivedConfiguration& configuration : manifest.configurations)
        measure(configuration);
}

void writeArchive(const std::string& path, const ArchiveManifest& manifest)
{
    const mode_t before = umask(S_IRWXG | S_IRWXO); // not everybody may read a configuration
    const FileWrite written =
        replaceFileAtomically(path, [&manifest](std::ostream& out) { writeAll(out, manifest); });
    umask(before);
    if (written.error != 0)
        throw fileFailure("cannot write", path, written.error);
}

ArchiveReader::ArchiveReader(const std::string& path) : mPath(path), mArchive(archive_read_new())
{
    archive_read_support_format_tar(mArchive.get());
    if (access(path.c_str(), R_OK) == -1)
        throw fileFailure("cannot read", path, errno);
    if (archive_read_open_filename(mArchive.get(), path.c_str(), kChunk) != ARCHIVE_OK)
        fail("cannot be read");
    const std::string text = readWhole(kManifest);
    if (readWhole(kManifestSum) != sumLine(text))
        fail("is damaged: its manifest has another checksum");
    try {
        mManifest = readManifest(text);
    } catch (const Json::Exception&) {
        fail("has a manifest that this release does not know");
    }
}

std::string ArchiveReader::readWhole(const char* name)
{
    const char* const path = nextEntry() ? archive_entry_pathname(mEntry) : nullptr;
    if (path == nullptr || std::string_view(path) != name ||
        archive_entry_size(mEntry) > kLargestManifest)
        fail(std::string("has no ") + name + " where it belongs");
    std::string text(static_cast<std::size_t>(archive_entry_size(mEntry)), '\0');
    if (archive_read_data(mArchive.get(), text.data(), text.size()) !=
        static_cast<la_ssize_t>(text.size()))
        fail("is cut short");
    return text;
}

void ArchiveReader::Close::operator()(archive* reader) const { archive_read_free(reader); }

void ArchiveReader::fail(const std::string& what) const
{
    const char* const reason = archive_error_string(mArchive.get());
    throw Failure(EXIT_NAME_OR_VALUE,
                  mPath + ' ' + what + (reason == nullptr ? "" : std::string(": ") + reason),
                  "tar -tvf " + shellQuoted(mPath));
}

bool ArchiveReader::nextEntry()
{
    const int result = archive_read_next_header(mArchive.get(), &mEntry);
    if (result != ARCHIVE_EOF && result < ARCHIVE_WARN)
        fail("is no such archive");
    return result != ARCHIVE_EOF;
}

const ArchivedConfiguration* ArchiveReader::next()
{
    const bool hasEntry = nextEntry();
    if (mNext == mManifest.configurations.size()) {
        if (hasEntry)
            fail("holds more than its manifest says");
        return nullptr;
    }
    const ArchivedConfiguration& expected = mManifest.configurations[mNext++];
    if (!hasEntry)
        fail("is cut short: configuration " + expected.name + " is missing");
    const char* const path = archive_entry_pathname(mEntry);
    if (path == nullptr || path != kFiles + expected.name ||
        archive_entry_filetype(mEntry) != AE_IFREG)
        fail("does not hold configuration " + expected.name + " where its manifest says");
    mManifest.configurations[mNext - 1].modified = archive_entry_mtime(mEntry);
    return &expected;
}

void ArchiveReader::extract(int fd)
{
    const ArchivedConfiguration& expected = mManifest.configurations[mNext - 1];
    Checksum checksum;
    std::array<char, kChunk> chunk;
    la_ssize_t got;
    while ((got = archive_read_data(mArchive.get(), chunk.data(), chunk.size())) > 0) {
        const auto count = static_cast<std::size_t>(got);
        checksum.add(chunk.data(), count);
        const auto writeChunk = [&] { return write(fd, chunk.data(), count); };
        const la_ssize_t written = fd == -1 ? got : uninterrupted(writeChunk);
        if (written != got) // of a full disk the first write that fails is a short one
            throw Failure(EXIT_INTERNAL,
                          "cannot unpack configuration " + expected.name + ": " +
                              strerror(written == -1 ? errno : ENOSPC),
                          "df -h");
    }
    if (got < 0)
        fail("is damaged in configuration " + expected.name);
    if (checksum.text() != expected.sha256)
        fail("is damaged: configuration " + expected.name + " has another checksum");
}
