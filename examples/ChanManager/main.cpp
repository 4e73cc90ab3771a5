// Entry of the sample channel manager.

#include "ChannelManager.h"
#include "DbgPrintClient.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <string>
#include <unistd.h>

namespace
{

constexpr char kSocket[] = "/tmp/sockChan";
constexpr char kSendSocket[] = "/tmp/sockSendChan";

} // namespace

int main(int argc, char** argv)
{
    int level = 0;
    int delay = 0;
    std::string socket = kSocket;
    Simulation simulation;

    CLI::App app("Sample channel manager: stores and loads the device's channels.", "ChanManager");
    app.add_option("-v", level, "Lines of this severity and worse are logged; 5 logs nothing");
    app.add_option("--socket", socket, "Serve this path instead of /tmp/sockChan");
    app.add_option("--delay-ms", delay, "Simulate: wait before each channel command");
    app.add_flag("--refuse", simulation.refuse, "Simulate: answer channel commands Unavailable");
    app.add_flag("--silent", simulation.silent, "Simulate: hang in the first channel command");
    CLI11_PARSE(app, argc, argv);

    gDbgLevel = level;
    simulation.delay = std::chrono::milliseconds(delay);
    ChannelManager manager(simulation);
    manager.start(socket, socket == kSocket ? kSendSocket : socket + ".send");
    while (pause() == -1 && errno == EINTR) {
    }
    return 0;
}
