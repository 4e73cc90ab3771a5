#include "Peers.h"

#include "Daemon.h"

#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

std::string findProgram(const std::string& name)
{
    const char* const path = std::getenv("PATH");
    std::istringstream directories(path == nullptr ? "" : path);
    for (std::string directory; std::getline(directories, directory, ':');)
        if (access((directory + '/' + name).c_str(), X_OK) == 0)
            return directory + '/' + name;
    return "";
}

std::shared_ptr<Process> startProgram(const std::string& path,
                                      const std::vector<std::string>& arguments,
                                      const std::string& socketPath,
                                      const std::function<void()>& prepare)
{
    return std::make_shared<Process>(
        [&] {
            std::vector<char*> words;
            for (const std::string& argument : arguments)
                words.push_back(const_cast<char*>(argument.c_str()));
            words.push_back(nullptr);
            const int nowhere = open("/dev/null", O_RDWR);
            dup2(nowhere, STDOUT_FILENO);
            dup2(nowhere, STDERR_FILENO);
            prepare();
            execv(path.c_str(), words.data());
        },
        socketPath);
}

std::string peerText(int row) { return "Evening line-up of " + rowName(row); }
