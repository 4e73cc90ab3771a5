// Entry of the sample device manager.

#include "DataCommunicator.h"
#include "DbgPrintClient.h"
#include "DeviceManager.h"
#include "MessageCommand.h"
#include "MessageText.h"

#include <cerrno>
#include <cstdlib>
#include <getopt.h>
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

constexpr char kUsage[] = R"(Usage: DevManager [OPTION ...]
Sample device manager: the device's time zone and its sensors.

  -v LEVEL           lines of this severity and worse are logged; 5 logs nothing
  -z, --zone ZONE    the time zone at start, such as CET-1CEST; else the last one set, or UTC
  --file PATH        keep the zone there instead of in /data/device_data_set.json
  --socket PATH      serve this path instead of /tmp/sockDev

Of the device manager that is running, on that path:
  --set-zone ZONE    change the zone
  --sensor N         show a sensor's row
  --limit DEGREES    before, set that sensor's limit
)";

struct Options {
    std::string zone;
    std::string newZone;
    std::string file = "/data/device_data_set.json";
    std::string socket = kSocket;
    int sensor = 0; // none
    std::string limit;
};

/// Ends the process where it is asked for help, or not understood.
Options parse(int argc, char** argv)
{
    Options options;
    const option names[] = {
        {"help", no_argument, nullptr, 'h'},           {"zone", required_argument, nullptr, 'z'},
        {"file", required_argument, nullptr, 'f'},     {"socket", required_argument, nullptr, 'p'},
        {"set-zone", required_argument, nullptr, 'c'}, {"sensor", required_argument, nullptr, 's'},
        {"limit", required_argument, nullptr, 'l'},    {}};
    for (int name; (name = getopt_long(argc, argv, "v:z:h", names, nullptr)) != -1;) {
        switch (name) {
        case 'v':
            gDbgLevel = std::atoi(optarg);
            break;
        case 'h':
            std::cout << kUsage;
            std::exit(0);
        case 'z':
            options.zone = optarg;
            break;
        case 'f':
            options.file = optarg;
            break;
        case 'p':
            options.socket = optarg;
            break;
        case 'c':
            options.newZone = optarg;
            break;
        case 's':
            options.sensor = std::atoi(optarg);
            break;
        case 'l':
            options.limit = optarg;
            break;
        default:
            std::cerr << kUsage;
            std::exit(2);
        }
    }
    if (optind != argc || (!options.limit.empty() && options.sensor == 0)) {
        std::cerr << kUsage;
        std::exit(2);
    }
    return options;
}

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
    const Options options = parse(argc, argv);
    if (!options.newZone.empty() || options.sensor != 0) {
        Client manager(options.socket);
        if (!options.newZone.empty())
            return setZone(manager, options.newZone);
        return options.limit.empty() ? showSensor(manager, options.sensor)
                                     : setLimit(manager, options.sensor, options.limit);
    }
    DeviceManager manager(options.zone, options.file);
    manager.start(options.socket,
                  options.socket == kSocket ? kSendSocket : options.socket + ".send");
    while (pause() == -1 && errno == EINTR) {
    }
    return 0;
}
