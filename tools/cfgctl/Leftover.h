#pragma once

// A file or directory of the client's own that must not outlive it. One thread.

#include <string>

class Leftover
{
public:
    /// From here on the file, or the directory, which has to be empty by then, is removed with the
    /// object, and by a signal that ends the process: SIGINT, SIGTERM, SIGHUP or SIGPIPE, but for
    /// those that whoever started it has it ignore.
    explicit Leftover(const std::string& path);
    ~Leftover();

    Leftover(const Leftover&) = delete;
    Leftover& operator=(const Leftover&) = delete;

    /// It stays, whatever comes.
    void leave();

    /// What such a signal says last, on the standard error, to somebody at the keyboard: what goes
    /// on without this process. "" for nothing.
    static void sayAtSignal(const std::string& words);

    /// None of this process is removed by a signal any more: they are its parent's.
    static void leaveAllToParent();

private:
    std::string mPath;
};
