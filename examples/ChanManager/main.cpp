// Entry of the sample channel manager.

#include "ChannelManager.h"
#include "DbgPrintClient.h"

#include <cerrno>
#include <cstdlib>
#include <getopt.h>
#include <iostream>
#include <string>
#include <unistd.h>

namespace
{

constexpr char kSocket[] = "/tmp/sockChan";
constexpr char kSendSocket[] = "/tmp/sockSendChan";

constexpr char kUsage[] = R"(Usage: ChanManager [OPTION ...]
Sample channel manager: stores and loads the device's channels.

  -v LEVEL        lines of this severity and worse are logged; 5 logs nothing
  --socket PATH   serve this path instead of /tmp/sockChan
  --delay-ms N    simulate: wait before each channel command
  --refuse        simulate: answer channel commands Unavailable
  --silent        simulate: hang in the first channel command
)";

} // namespace

int main(int argc, char** argv)
{
    std::string socket = kSocket;
    Simulation simulation;

    const option names[] = {
        {"help", no_argument, nullptr, 'h'},           {"socket", required_argument, nullptr, 'p'},
        {"delay-ms", required_argument, nullptr, 'd'}, {"refuse", no_argument, nullptr, 'r'},
        {"silent", no_argument, nullptr, 's'},         {}};
    for (int name; (name = getopt_long(argc, argv, "v:h", names, nullptr)) != -1;) {
        switch (name) {
        case 'v':
            gDbgLevel = std::atoi(optarg);
            break;
        case 'h':
            std::cout << kUsage;
            return 0;
        case 'p':
            socket = optarg;
            break;
        case 'd':
            simulation.delay = std::chrono::milliseconds(std::atoi(optarg));
            break;
        case 'r':
            simulation.refuse = true;
            break;
        case 's':
            simulation.silent = true;
            break;
        default:
            std::cerr << kUsage;
            return 2;
        }
    }
    if (optind != argc) {
        std::cerr << kUsage;
        return 2;
    }

    ChannelManager manager(simulation);
    manager.start(socket, socket == kSocket ? kSendSocket : socket + ".send");
    while (pause() == -1 && errno == EINTR) {
    }
    return 0;
}
