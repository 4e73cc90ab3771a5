// A manager whose start-up throws, linked with the daemon's own main(). When the process is being
// terminated it prints whether the manager's socket is still open, which closes with the manager.

#include "ConfigurationManager.h"
#include "wire/DatagramSocket.h"

#include <cstdio>
#include <exception>

namespace
{

constexpr char kSocket[] = "/tmp/sockThrowing";

[[noreturn]] void reportAndAbort()
{
    DatagramSocket probe;
    SocketAddress address;
    const bool open = probe.open() && address.assign(kSocket) &&
                      connect(probe.descriptor(), address.raw(), address.length()) == 0;
    std::fputs(open ? "manager: open" : "manager: destroyed", stderr);
    std::abort();
}

} // namespace

void ConfigurationManager::init()
{
    std::set_terminate(reportAndAbort);
    getDataCommunicator().init(this, kSocket, "/tmp/sockSendThrowing", "tThrowing");
    throw std::exception();
}

Fcodes ConfigurationManager::acceptChanges() { return FC_OK; }
Fcodes ConfigurationManager::deleteRow(const std::string&, int) { return FC_OK; }
Fcodes ConfigurationManager::execute(const std::string&, std::string&) { return FC_OK; }
Fcodes ConfigurationManager::doExecute(const std::string&, std::string&) { return FC_OK; }
Fcodes ConfigurationManager::doHandle(MessageEvent*) { return FC_OK; }
