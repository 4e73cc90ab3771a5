#include "Daemon.h"

#include "BenchmarkRun.h"
#include "CfgPaths.h"
#include "MessageCommand.h"
#include "RawStore.h"

#include <array>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <json/json.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

constexpr char kDbgFifo[] = "/tmp/sockDbg";
constexpr std::size_t kRowDigits = 5;

std::string pathAside(int rows) { return std::string(kCfgDir) + '.' + std::to_string(rows); }

Json::Value row(const std::string& name)
{
    Json::Value values;
    values["Name"] = name;
    values["Description"] = "Evening line-up of " + name;
    values["File Name"] = std::string(kCfgDir) + "/" + name;
    values["Time"] = "05-Mar-24  14:07:09";
    values["State"] = "Available";
    values["Fcode"] = 65536;
    return values;
}

bool takesMessages(const sockaddr_un& address)
{
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool taken =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return taken;
}

[[noreturn]] void becomeDaemon(const std::string& level)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string program = fs::read_symlink("/proc/self/exe").replace_filename("CfgManager");
    dup2(open("/dev/null", O_RDWR), STDOUT_FILENO);
    execl(program.c_str(), program.c_str(), "-v", level.c_str(), nullptr);
    abortBenchmarks("cannot run " + program);
}

} // namespace

std::string rowName(int number)
{
    std::string digits = std::to_string(number);
    return "Channels " + digits.insert(0, kRowDigits - digits.size(), '0');
}

DataDirectory::DataDirectory(const fs::path& disk) : mMounted(!disk.empty())
{
    if (!mMounted)
        return;
    if (mount(disk.c_str(), "/data", nullptr, MS_BIND, nullptr) == -1)
        abortBenchmarks("cannot mount " + disk.string() + " on /data");
    for (const auto& entry : fs::directory_iterator("/data"))
        fs::remove_all(entry);
}

DataDirectory::~DataDirectory()
{
    for (const auto& entry : fs::directory_iterator("/data"))
        fs::remove_all(entry);
    if (mMounted)
        umount2("/data", MNT_DETACH);
}

void DataDirectory::placeCatalogue(int rows)
{
    if (rows == mPlacedRows)
        return;
    if (mPlacedRows != -1)
        fs::rename(kCfgDir, pathAside(mPlacedRows));
    if (fs::exists(pathAside(rows)))
        fs::rename(pathAside(rows), kCfgDir);
    else
        makeCatalogue(rows);
    mPlacedRows = rows;
}

void DataDirectory::makeCatalogue(int rows)
{
    fs::create_directory(kCfgDir);
    if (rows == 0)
        return;
    Json::Value catalogue = parseFile(kFactoryCatalogue);
    Json::Value& instances = catalogue["components"]["ConfigurationsTable"]["instances"];
    for (int number = 0; number < rows; ++number) {
        const std::string name = rowName(number);
        instances[name] = row(name);
        std::ofstream(std::string(kCfgDir) + "/" + name) << "channels\n";
    }
    std::ofstream(kStoredCatalogue) << catalogue;
    const int directory = open(kCfgDir, O_RDONLY | O_CLOEXEC);
    syncfs(directory); // so that no measurement pays for it
    close(directory);
}

Daemon::Daemon(const std::string& level) : mAddress(addressOf(kCfgSocket))
{
    unlink(kCfgSocket);
    const Stopwatch watch;
    mPid = fork();
    if (mPid == 0)
        becomeDaemon(level);
    while (!takesMessages(mAddress)) {
        if (waitpid(mPid, nullptr, WNOHANG) != 0 || watch.seconds() > 60)
            abortBenchmarks("the daemon does not start");
        usleep(200);
    }
    RawSocket client("/tmp/sockBenchStart");
    PreparedMessage greeting = getItem(rowName(0));
    request(client, mAddress, greeting);
    mStartSeconds = watch.seconds();
}

Daemon::~Daemon()
{
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
}

double Daemon::cpuSeconds() const
{
    clockid_t clock;
    timespec used{};
    if (clock_getcpuclockid(mPid, &clock) != 0 || clock_gettime(clock, &used) != 0)
        abortBenchmarks("cannot read the daemon's clock");
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

void Daemon::moveTo(const std::string& path)
{
    fs::rename(kCfgSocket, path);
    mAddress = addressOf(path);
}

Collector::Collector()
{
    mkfifo(kDbgFifo, 0666);
    mPid = fork();
    if (mPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int fifo = open(kDbgFifo, O_RDWR);
        for (std::array<char, 65536> chunk; read(fifo, chunk.data(), chunk.size()) > 0;) {
        }
        _exit(0);
    }
}

Collector::~Collector()
{
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    unlink(kDbgFifo);
}

PreparedMessage getItem(const std::string& row)
{
    return {"GET", "<BODY>\n\t<DataSet ID=\"CfgDataSet\" >\n"
                   "\t<Component Name=\"ConfigurationsTable\" >\n\t\t<Row ID=\"" +
                       row +
                       "\" >\n\t\t<Item Name=\"Description\" />\n\t\t</Row>\n\t</Component>\n"
                       "</DataSet>\n</BODY>\n"};
}

PreparedMessage& ItemRequest::of(int row)
{
    mGet.overwrite(mDigits, kRowDigits, row);
    return mGet;
}

PreparedMessage setAutoStart(const std::string& row)
{
    return {"COMMAND", "<BODY>\n\t<Command ID=\"SET_AUTOSTART_CFG\" >\n"
                       "\t<Parameter Name=\"AutoStart\" Value=\"true\" />\n"
                       "\t<Parameter Name=\"RowID\" Value=\"" +
                           row + "\" />\n</Command>\n\n</BODY>\n"};
}

PreparedMessage command(const std::string& id, const std::map<std::string, std::string>& parameters)
{
    MessageCommand command;
    command.setId(id);
    for (const auto& [name, value] : parameters)
        command.addParam(name, value);
    std::string text;
    return {"COMMAND", "<BODY>\n\t" + command.toString(text) + "\n</BODY>\n"};
}

void expectItem(RawSocket& client, const Daemon& daemon, int row)
{
    ItemRequest get;
    if (request(client, daemon.address(), get.of(row)).find("line-up of " + rowName(row)) ==
        std::string_view::npos)
        abortBenchmarks("the daemon does not know " + rowName(row));
}

Memory memoryOf(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    Memory memory{};
    for (std::string word; status >> word;) {
        double kilobytes = 0;
        if (word == "VmRSS:" && status >> kilobytes)
            memory.resident = kilobytes * 1024;
        else if (word == "VmHWM:" && status >> kilobytes)
            memory.peak = kilobytes * 1024;
    }
    return memory;
}

void resetPeak(pid_t pid) { std::ofstream("/proc/" + std::to_string(pid) + "/clear_refs") << "5"; }
