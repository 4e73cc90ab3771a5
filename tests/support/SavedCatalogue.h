#pragma once

// What must survive whatever happens to the daemon, as an operator would miss it, and a channel
// manager for tests of that.

#include "Device.h"
#include "ScriptedPeer.h"

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <utility>

/// Descriptions and contents by name, and what starts at boot.
struct Catalogue {
    std::map<std::string, std::pair<std::string, std::string>> rows;
    std::string autoStart;

    bool operator==(const Catalogue&) const = default;
};

/// As it stands in the files, none of which is missing or left over.
Catalogue storedCatalogue();

/// What the first has and the second has not, a line each.
std::string describe(const Catalogue& one, const Catalogue& other);

/// Stands in for the channel manager: each file that it writes is another.
class Channels
{
public:
    enum class Mode { OK, REFUSE, REFUSE_AND_WRITE, SILENT };

    Channels() : mThread([this] { serve(); }) {}
    ~Channels()
    {
        mStop = true;
        finishRequests();
        mThread.join();
    }

    /// Returns when all that was asked so far is done.
    static void finishRequests();

    static std::string content(int number) { return "channels " + std::to_string(number); }

    std::atomic<Mode> mode = Mode::OK; ///< of the next save
    std::atomic<int> written = 0;      ///< number of the last file

private:
    void serve();

    ScriptedPeer mPeer{"/tmp/sockChan"};
    std::atomic<bool> mStop = false;
    std::thread mThread;
};

/// After the daemon has been cut off: lets the helpers end that outlive it, a store or move, and
/// the channel manager; then starts it three times more, cuts it off each time, and expects that
/// nothing of its own is left beside the catalogue. With channels only.
void startThrice(Device& device);
