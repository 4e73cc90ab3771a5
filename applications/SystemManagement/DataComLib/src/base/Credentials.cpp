#include "base/Credentials.h"

#include <fstream>

namespace
{

id_t overflowId(const char* file)
{
    id_t id = 65534;
    std::ifstream(file) >> id;
    return id;
}

} // namespace

bool isOverflowId(id_t id)
{
    static const id_t user = overflowId("/proc/sys/kernel/overflowuid");
    static const id_t group = overflowId("/proc/sys/kernel/overflowgid");
    return id == user || id == group;
}

bool isKnownSender(const ucred& sender) { return sender.pid != 0 && !isOverflowId(sender.uid); }
