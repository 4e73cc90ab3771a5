#pragma once

// The subcommands, one function each. Each prints its own result, or why there is none, and returns
// the exit status; std::invalid_argument is thrown for texts that no message carries. One thread.

#include "Catalogue.h"
#include "CfgClient.h"

#include <optional>
#include <string>

enum ExitStatus : int { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2, EXIT_NO_ANSWER = 3 };

class Commands
{
public:
    /// `timeout` in seconds, for every answer; without one each command waits as long as its own
    /// work may take, not for commands or a boot that the daemon serves first: EXIT_NO_ANSWER then
    /// does not say that it is not carried out. Throws std::runtime_error when the client's sockets
    /// cannot be made.
    explicit Commands(std::optional<int> timeout) : mTimeout(timeout) {}

    ExitStatus list();
    ExitStatus show(const std::string& name);

    ExitStatus save(const std::string& name, const std::string& description, bool autoStart);
    ExitStatus start(const std::string& name);
    ExitStatus autoStart(const std::string& name); ///< "" clears it
    /// EXIT_REFUSED also when there is no such file here.
    ExitStatus importFile(const std::string& file, const std::string& description, bool autoStart);
    ExitStatus rename(const std::string& oldName, const std::string& newName,
                      const std::optional<std::string>& description);
    ExitStatus remove(const std::string& name);
    ExitStatus setDebugLogging(bool on);

    /// Ends after `count` events, or after `seconds`; 0 is without limit. EXIT_REFUSED when fewer
    /// than `count` have come.
    ExitStatus watch(int count, int seconds);

private:
    ExitStatus send(const std::string& what, const MessageCommand& command, int usualTimeout);
    ExitStatus report(const std::string& what, const Answer& answer, int timeout) const;
    int timeout(int usual) const { return mTimeout.value_or(usual); }

    std::optional<int> mTimeout;
    CfgClient mClient;
};
