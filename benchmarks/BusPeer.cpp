#include "BenchmarkRun.h"
#include "Daemon.h"
#include "Peers.h"

namespace
{

const char* nameOf(Bus bus)
{
    switch (bus) {
    case Bus::BROKER:
        return "dbus-broker";
    case Bus::DAEMON:
        return "dbus-daemon";
    default:
        return "sd-bus, no broker";
    }
}

} // namespace

#ifdef BENCH_SD_BUS

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <unordered_map>

namespace fs = std::filesystem;

namespace
{

constexpr char kService[] = "bench.Catalogue";
constexpr char kPath[] = "/bench/Catalogue";
constexpr char kInterface[] = "bench.Catalogue";

std::string socketOf(Bus bus) { return std::string("/tmp/sock-") + nameOf(bus); }

// --- connections ---

using Connection = std::shared_ptr<sd_bus>;

void expect(int result, const std::string& what)
{
    if (result < 0) {
        errno = -result;
        abortBenchmarks("sd-bus: cannot " + what);
    }
}

Connection newConnection()
{
    sd_bus* bus = nullptr;
    expect(sd_bus_new(&bus), "make a connection");
    return {bus, sd_bus_close_unref};
}

/// Null where the bus does not run.
Connection connectTo(Bus bus)
{
    Connection connection = newConnection();
    sd_bus_set_address(connection.get(), ("unix:path=" + socketOf(bus)).c_str());
    sd_bus_set_bus_client(connection.get(), 1);
    const char* name = nullptr;
    if (sd_bus_start(connection.get()) < 0 || sd_bus_get_unique_name(connection.get(), &name) < 0)
        return nullptr;
    return connection;
}

/// Without a bus: the two ends of a pair of sockets.
Connection connectOver(int socket, bool isServer)
{
    Connection connection = newConnection();
    expect(sd_bus_set_fd(connection.get(), socket, socket), "use a socket");
    sd_id128_t id{};
    if (isServer)
        expect(sd_bus_set_server(connection.get(), 1, id), "serve");
    expect(sd_bus_start(connection.get()), "start");
    return connection;
}

// --- the service ---

using Rows = std::unordered_map<std::string, std::string>;

int answerGet(sd_bus_message* call, void* rows, sd_bus_error* /*error*/)
{
    const char* name = nullptr;
    sd_bus_message_read(call, "s", &name);
    const auto found = static_cast<Rows*>(rows)->find(name);
    return sd_bus_reply_method_return(call, "s", found->second.c_str());
}

const sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Get", "s", "s", answerGet, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

[[noreturn]] void serveForever(const Connection& connection, int rowCount)
{
    Rows rows;
    for (int row = 0; row < rowCount; ++row)
        rows[rowName(row)] = peerText(row);
    expect(sd_bus_add_object_vtable(connection.get(), nullptr, kPath, kInterface, kMethods, &rows),
           "offer a method");
    for (;;)
        if (sd_bus_process(connection.get(), nullptr) == 0)
            sd_bus_wait(connection.get(), UINT64_MAX);
}

/// Until somebody owns its name.
void waitForService(const Connection& client)
{
    const Stopwatch watch;
    while (sd_bus_get_name_creds(client.get(), kService, 0, nullptr) < 0) {
        if (watch.seconds() > 10)
            abortBenchmarks("the service does not start");
        usleep(1000);
    }
}

Question questionOver(const Connection& connection, const char* service)
{
    return [connection, service](int row) {
        sd_bus_message* answer = nullptr;
        expect(sd_bus_call_method(connection.get(), service, kPath, kInterface, "Get", nullptr,
                                  &answer, "s", rowName(row).c_str()),
               "get a row");
        const char* text = nullptr;
        expect(sd_bus_message_read(answer, "s", &text), "read an answer");
        sd_bus_message_unref(answer);
    };
}

// --- buses ---

constexpr char kConfiguration[] = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=/tmp/sock-dbus-daemon</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
constexpr char kConfigurationFile[] = "/tmp/bench-bus.conf";

/// The launcher takes its socket as a service manager passes one, and connects to it too. It
/// insists on the journal's socket.
std::shared_ptr<Process> startBroker(const std::string& program)
{
    constexpr char kJournal[] = "/run/systemd/journal/socket";
    if (fs::is_symlink("/run/systemd"))
        fs::remove("/run/systemd"); // the world's, which leads to the machine's
    fs::create_directories(fs::path(kJournal).parent_path());
    static const RawSocket journal(kJournal);

    const std::string path = socketOf(Bus::BROKER);
    const sockaddr_un address = addressOf(path);
    unlink(path.c_str());
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    listen(listening, 128);
    const auto passSocket = [&] {
        dup2(fcntl(listening, F_DUPFD_CLOEXEC, 10), 3);
        setenv("LISTEN_FDS", "1", 1);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
    };
    const auto process = startProgram(
        program, {program, "--scope", "user", "--config-file", kConfigurationFile}, "", passSocket);
    close(listening);
    return process;
}

struct RunningBus {
    std::shared_ptr<Process> process{};
    std::string missing{};
};

RunningBus startBus(Bus bus)
{
    if (bus == Bus::NONE)
        return {};
    std::ofstream(kConfigurationFile) << kConfiguration;
    const bool isBroker = bus == Bus::BROKER;
    const std::string program = findProgram(isBroker ? "dbus-broker-launch" : "dbus-daemon");
    if (program.empty())
        return {.missing = kNotInstalled};
    const auto process = isBroker ? startBroker(program)
                                  : startProgram(program,
                                                 {program, "--nofork", "--nopidfile",
                                                  "--config-file", kConfigurationFile},
                                                 socketOf(bus));
    const Stopwatch watch;
    while (connectTo(bus) == nullptr) { // it binds its socket before it listens
        if (watch.seconds() > 5)
            return {.missing = kNotStarted};
        usleep(1000);
    }
    return {.process = process};
}

} // namespace

Server startBusService(Bus bus, int rows)
{
    Server server{.system = nameOf(bus), .rows = rows};
    const RunningBus running = startBus(bus);
    server.missing = running.missing;
    if (!server.missing.empty())
        return server;

    std::array<int, 2> ends{-1, -1};
    if (bus == Bus::NONE && socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == -1)
        abortBenchmarks("cannot make a pair of sockets");
    const auto service = std::make_shared<Process>([=] {
        const Connection connection =
            bus == Bus::NONE ? connectOver(ends[0], true) : connectTo(bus);
        if (bus != Bus::NONE)
            expect(sd_bus_request_name(connection.get(), kService, 0), "own a name");
        serveForever(connection, rows);
    });
    const Connection client = bus == Bus::NONE ? connectOver(ends[1], false) : connectTo(bus);
    if (bus == Bus::NONE)
        close(ends[0]);
    else
        waitForService(client);
    server.connect = [client, bus] {
        return questionOver(client, bus == Bus::NONE ? nullptr : kService);
    };
    server.server = std::make_shared<std::array<std::shared_ptr<Process>, 2>>(
        std::array{running.process, service});
    return server;
}

PeerWork busSignal(Bus bus, int subscribers)
{
    static constexpr char kSignal[] = "ConfigurationActivated";
    const RunningBus running = startBus(bus);
    if (!running.missing.empty())
        return {.system = nameOf(bus), .missing = running.missing};

    struct Subscriber {
        Connection connection;
        int received = 0;
    };
    const auto all =
        std::make_shared<std::vector<Subscriber>>(static_cast<std::size_t>(subscribers));
    for (Subscriber& subscriber : *all) {
        subscriber.connection = connectTo(bus);
        const auto count = [](sd_bus_message* /*signal*/, void* received, sd_bus_error* /*error*/) {
            return ++*static_cast<int*>(received), 0;
        };
        expect(sd_bus_match_signal(subscriber.connection.get(), nullptr, nullptr, kPath, kInterface,
                                   kSignal, count, &subscriber.received),
               "subscribe");
    }
    const auto notify = [process = running.process, all, sender = connectTo(bus)] {
        expect(sd_bus_emit_signal(sender.get(), kPath, kInterface, kSignal, "sss",
                                  rowName(42).c_str(), "Info", "05-Mar-24  14:07:09"),
               "notify");
        expect(sd_bus_flush(sender.get()), "flush");
        for (Subscriber& subscriber : *all)
            for (subscriber.received = 0; subscriber.received == 0;)
                if (sd_bus_process(subscriber.connection.get(), nullptr) == 0)
                    expect(sd_bus_wait(subscriber.connection.get(), UINT64_MAX), "wait");
    };
    return {.system = nameOf(bus), .work = notify};
}

#else

Server startBusService(Bus bus, int rows)
{
    return {.system = nameOf(bus), .rows = rows, .missing = kNotInstalled};
}

PeerWork busSignal(Bus bus, int /*subscribers*/)
{
    return {.system = nameOf(bus), .missing = kNotInstalled};
}

#endif
