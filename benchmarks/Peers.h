#pragma once

// Other software on the same work, from Debian's packages. What is not installed, or does not
// start, says so in `missing`. Its processes run in the private world, with sockets in /tmp, and
// end with what is returned here. An answer other than the expected one ends the benchmarks.

#include "RawSocket.h"
#include "Server.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What a call of `work` does once.
struct PeerWork {
    std::string system{};
    std::function<void()> work{};
    std::string missing{}; ///< why it cannot be done; empty when it can
};

/// Redis on a Unix socket: a hash a row. It keeps nothing on the disk.
Server startRedis(int rows);

/// Redis changes a field of one of the rows, and has it on the disk when it answers.
PeerWork redisChange(const std::string& directory, int rows);

/// SQLite commits a change of one of the rows, in this process.
PeerWork sqliteChange(const std::string& directory, int rows);

enum class Bus { NONE, BROKER, DAEMON };

/// A service of sd-bus, asked over the bus, or directly, by one client.
Server startBusService(Bus bus, int rows);

/// A signal over the bus, read by all subscribers.
PeerWork busSignal(Bus bus, int subscribers);

/// spdlog writes a line to the file at once, with a header like ours.
PeerWork spdlogLine(const std::string& path, const std::string& text);

// What they share.

constexpr char kNotInstalled[] = "not installed";
constexpr char kNotStarted[] = "does not start";

/// The program's path; empty where it is not on PATH.
std::string findProgram(const std::string& name);

/// Runs the program at the path; the first argument is its name. `prepare` runs in its process.
std::shared_ptr<Process> startProgram(
    const std::string& path, const std::vector<std::string>& arguments,
    const std::string& socketPath, const std::function<void()>& prepare = [] {});

/// What is asked for, as long as the daemon's own.
std::string peerText(int row);
