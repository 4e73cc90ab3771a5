#include "BenchmarkRun.h"
#include "Daemon.h"
#include "Peers.h"

#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr char kSystem[] = "Redis";

/// One connection, and what its protocol needs for single commands.
class RedisClient
{
public:
    explicit RedisClient(const std::string& path)
        : mSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_un address = addressOf(path);
        const Stopwatch watch;
        while (connect(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
               -1) { // it binds its socket before it listens
            if (watch.seconds() > 5)
                abortBenchmarks("cannot connect to " + path);
            usleep(1000);
        }
    }
    ~RedisClient() { close(mSocket); }

    RedisClient(const RedisClient&) = delete;
    RedisClient& operator=(const RedisClient&) = delete;

    /// The answer as it comes.
    std::string_view call(std::initializer_list<std::string_view> words)
    {
        mText = "*" + std::to_string(words.size()) + "\r\n";
        for (const std::string_view word : words)
            mText.append("$")
                .append(std::to_string(word.size()))
                .append("\r\n")
                .append(word)
                .append("\r\n");
        if (send(mSocket, mText.data(), mText.size(), MSG_NOSIGNAL) == -1)
            abortBenchmarks("Redis takes no command");
        mText.clear();
        while (!isWhole(mText)) {
            char chunk[512];
            const ssize_t size = recv(mSocket, chunk, sizeof chunk, 0);
            if (size <= 0)
                abortBenchmarks("Redis does not answer");
            mText.append(chunk, static_cast<std::size_t>(size));
        }
        return mText;
    }

private:
    /// One line, and for a text its bytes and the end of their line.
    static bool isWhole(std::string_view text)
    {
        const std::size_t line = text.find("\r\n");
        if (line == std::string_view::npos)
            return false;
        const bool isText = text[0] == '$' && text[1] != '-';
        return !isText ||
               text.size() == line + 4 + static_cast<std::size_t>(std::atoi(text.data() + 1));
    }

    int mSocket;
    std::string mText;
};

/// A server that knows the rows; missing where it does not run.
Server startServer(int rows, const std::string& socketPath, const std::string& directory,
                   bool keeps)
{
    // The package of its tools has the whole program too, without the service.
    std::string program = findProgram("redis-server");
    if (program.empty())
        program = findProgram("redis-check-rdb");
    if (program.empty())
        return {.system = kSystem, .rows = rows, .missing = kNotInstalled};
    const auto process = startProgram(program,
                                      {"redis-server", "--port", "0", "--unixsocket", socketPath,
                                       "--save", "", "--appendonly", keeps ? "yes" : "no",
                                       "--appendfsync", "no", "--dir", directory},
                                      socketPath);
    if (access(socketPath.c_str(), F_OK) == -1)
        return {.system = kSystem, .rows = rows, .missing = kNotStarted};

    RedisClient client(socketPath);
    for (int row = 0; row < rows; ++row)
        client.call({"HSET", rowName(row), "Description", peerText(row), "AutoStart", "false"});
    client.call({"CONFIG", "SET", "appendfsync", "always"});
    const auto connect = [socketPath] {
        return [client = std::make_shared<RedisClient>(socketPath)](int row) {
            if (client->call({"HGET", rowName(row), "Description"}).starts_with("$-"))
                abortBenchmarks("Redis does not know a row");
        };
    };
    return {.system = kSystem,
            .rows = rows,
            .connect = connect,
            .processes = {process->pid()},
            .server = process};
}

} // namespace

Server startRedis(int rows) { return startServer(rows, "/tmp/sockRedis", "/tmp", false); }

PeerWork redisChange(const std::string& directory, int rows)
{
    const std::string path = "/tmp/sockRedisKeeping";
    std::filesystem::create_directories(directory);
    const Server server = startServer(rows, path, directory, true);
    if (!server.missing.empty())
        return {.system = kSystem, .missing = server.missing};
    return {
        .system = kSystem,
        .work = [server, client = std::make_shared<RedisClient>(path), odd = false]() mutable {
            odd = !odd;
            if (client->call({"HSET", rowName(1), "AutoStart", odd ? "true" : "false"}) != ":0\r\n")
                abortBenchmarks("Redis does not change a row");
        }};
}
