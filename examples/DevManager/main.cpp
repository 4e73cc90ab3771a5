// Entry of the sample device manager.

#include "DataCommunicator.h"
#include "DbgPrintClient.h"
#include "DeviceManager.h"
#include "MessageCommand.h"
#include "MessageText.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <iostream>
#include <string>
#include <unistd.h>

namespace
{

constexpr char kSocket[] = "/tmp/sockDev";
constexpr char kSendSocket[] = "/tmp/sockSendDev";
constexpr char kTable[] = "SensorTable";
constexpr int kAnswerTimeout = 10; // seconds
constexpr int kNoLogging = 5;

/// A process that only sends requests needs no holder and no responder, only two sockets. It
/// removes them at its end.
class Client
{
public:
    explicit Client(std::string manager)
        : mManager(std::move(manager)), mSocket("/tmp/sockDevClient." + std::to_string(getpid()))
    {
        gDbgLevel = kNoLogging;
        mCommunicator.init(nullptr, mSocket, mSocket + ".send", "tDevClient");
    }

    ~Client()
    {
        unlink(mSocket.c_str());
        unlink((mSocket + ".send").c_str());
    }

    Fcodes command(const std::string& id, const std::string& name = {},
                   const std::string& value = {})
    {
        MessageCommand command;
        command.setId(id);
        if (!name.empty())
            command.addParam(name, value);
        std::string text;
        std::string answer;
        return mCommunicator.requestCommand(mManager, command.toString(text), answer,
                                            kAnswerTimeout, 1);
    }

    std::string read(int sensor, const std::string& item)
    {
        std::string value = "?";
        mCommunicator.requestDataItem(mManager, kTable, sensor, item, value, kAnswerTimeout, 1);
        return value;
    }

    /// The answer to a write has no body, which the communicator reports as FC_BODY_ERROR: that
    /// alone is a success.
    bool write(int sensor, const std::string& item, const std::string& value)
    {
        return mCommunicator.requestSetDataItem(mManager, kTable, sensor, item, value,
                                                kAnswerTimeout, 1) == FC_BODY_ERROR;
    }

private:
    std::string mManager;
    std::string mSocket;
    DataCommunicator mCommunicator;
};

int setZone(Client& manager, const std::string& zone)
{
    if (const std::size_t at = findUnsendable(zone); at != std::string::npos) {
        std::cout << "TZ=" << zone << ": byte " << at + 1 << " cannot be sent" << std::endl;
        return 2;
    }
    const Fcodes result = manager.command("SET_TIME_ZONE", "TZ", zone);
    std::cout << "TZ=" << zone << ": " << fcodeText(result) << std::endl;
    return result == FC_OK ? 0 : 1;
}

int showSensor(Client& manager, int sensor)
{
    const std::string temperature = manager.read(sensor, "Temperature");
    std::cout << "sensor " << sensor << ": " << temperature << " degrees, limit "
              << manager.read(sensor, "Limit") << ", alarm " << manager.read(sensor, "Alarm")
              << std::endl;
    return temperature == "?" ? 1 : 0;
}

int setLimit(Client& manager, int sensor, const std::string& limit)
{
    const bool set =
        manager.write(sensor, "Limit", limit) && manager.command("APPLY_LIMITS") == FC_OK;
    if (!set)
        std::cout << "sensor " << sensor << ": the limit is refused" << std::endl;
    return set ? showSensor(manager, sensor) : 1;
}

} // namespace

int main(int argc, char** argv)
{
    int level = 0;
    std::string zone;
    std::string newZone;
    std::string socket = kSocket;
    int sensor = 0;
    std::string limit;

    CLI::App app("Sample device manager: the device's time zone and its sensors.", "DevManager");
    app.add_option("-v", level, "Lines of this severity and worse are logged; 5 logs nothing");
    app.add_option("-z,--zone", zone,
                   "The time zone at start, such as CET-1CEST; else the last one set, or UTC");
    app.add_option("--socket", socket, "Serve this path instead of /tmp/sockDev");
    app.add_option("--set-zone", newZone,
                   "Have the device manager that is running change the zone");
    const auto* const sensorOption = app.add_option(
        "--sensor", sensor, "Ask the device manager that is running for a sensor's row");
    app.add_option("--limit", limit, "Set that sensor's limit")->needs("--sensor");
    CLI11_PARSE(app, argc, argv);

    if (!newZone.empty() || sensorOption->count() > 0) {
        Client manager(socket);
        if (!newZone.empty())
            return setZone(manager, newZone);
        return limit.empty() ? showSensor(manager, sensor) : setLimit(manager, sensor, limit);
    }
    gDbgLevel = level;
    DeviceManager manager(zone);
    manager.start(socket, socket == kSocket ? kSendSocket : socket + ".send");
    while (pause() == -1 && errno == EINTR) {
    }
    return 0;
}
