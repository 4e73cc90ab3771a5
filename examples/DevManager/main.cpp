// Entry of the sample device manager.

#include "DataCommunicator.h"
#include "DbgPrintClient.h"
#include "DeviceManager.h"
#include "MessageCommand.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <iostream>
#include <string>
#include <unistd.h>

namespace
{

constexpr char kSocket[] = "/tmp/sockDev";
constexpr char kSendSocket[] = "/tmp/sockSendDev";
constexpr int kAnswerTimeout = 10; // seconds
constexpr int kNoLogging = 5;

/// Asks the device manager that is running to change the zone. A process that only asks needs no
/// holder and no responder: two sockets do.
int askForZone(const std::string& socket, const std::string& zone)
{
    const std::string ownSocket = "/tmp/sockSetZone." + std::to_string(getpid());
    const std::string ownSendSocket = ownSocket + ".send";
    DataCommunicator communicator;
    communicator.init(nullptr, ownSocket, ownSendSocket, "tSetZone");

    MessageCommand command;
    command.setId("SET_TIME_ZONE");
    command.addParam("TZ", zone);
    std::string text;
    std::string answer;
    const Fcodes result =
        communicator.requestCommand(socket, command.toString(text), answer, kAnswerTimeout, 1);
    unlink(ownSocket.c_str());
    unlink(ownSendSocket.c_str());
    std::cout << "TZ=" << zone << ": " << fcodeText(result) << std::endl;
    return result == FC_OK ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    int level = 0;
    std::string zone = "UTC";
    std::string newZone;
    std::string socket = kSocket;

    CLI::App app("Sample device manager: the device's time zone.", "DevManager");
    app.add_option("-v", level, "Lines of this severity and worse are logged; 5 logs nothing");
    app.add_option("-z,--zone", zone, "The time zone at start, such as CET-1CEST");
    app.add_option("--socket", socket, "Serve this path instead of /tmp/sockDev");
    app.add_option("--set-zone", newZone,
                   "Have the device manager that is running change the zone");
    CLI11_PARSE(app, argc, argv);

    if (!newZone.empty()) {
        gDbgLevel = kNoLogging;
        return askForZone(socket, newZone);
    }
    gDbgLevel = level;
    DeviceManager manager(zone);
    manager.start(socket, socket == kSocket ? kSendSocket : socket + ".send");
    while (pause() == -1 && errno == EINTR) {
    }
    return 0;
}
