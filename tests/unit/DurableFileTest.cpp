#include "DurableFile.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <random>
#include <sstream>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using testing::ElementsAre;

class DurableFileTest : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::create_directories(kDirectory);
        umask(022);
    }
    void TearDown() override { fs::remove_all(kParent); }

    static int store(const std::string& text, const std::string& path = kPath)
    {
        return writeDurably(path, [&text](std::ostream& out) { out << text; });
    }

    static std::string content(const std::string& path = kPath)
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    static std::vector<std::string> names(const char* directory = kDirectory)
    {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(directory))
            found.push_back(entry.path().filename());
        return found;
    }

    static unsigned mode()
    {
        struct stat file {
        };
        stat(kPath, &file);
        return file.st_mode & 07777;
    }

    static ino_t inode()
    {
        struct stat file {
        };
        stat(kPath, &file);
        return file.st_ino;
    }

    /// From here on the calling thread's system call fails when the argument has the flag; 0
    /// stands for every call.
    static void refuse(long call, unsigned argument, unsigned flag, unsigned error)
    {
        const auto offset = static_cast<unsigned>(offsetof(seccomp_data, args) + 8 * argument);
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 3),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset),
            BPF_JUMP(BPF_JMP | (flag == 0 ? BPF_JGE : BPF_JSET) | BPF_K, flag, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog program = {std::size(filter), filter};
        ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
        ASSERT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program));
    }

    /// From here on permissions bind the calling thread, although it is root's.
    static void dropRootsPower()
    {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct none[2] = {};
        ASSERT_EQ(0, syscall(SYS_capset, &header, none));
    }

    static void inThread(const std::function<void()>& work) { std::thread(work).join(); }

    static constexpr char kParent[] = "/tmp/durable";
    static constexpr char kDirectory[] = "/tmp/durable/dir";
    static constexpr char kPath[] = "/tmp/durable/dir/file";
};

TEST_F(DurableFileTest, ANewFileHasTheUsualModeAndAReplacedOneKeepsItsOwn)
{
    EXPECT_EQ(0, store("first"));
    EXPECT_EQ("first", content());
    EXPECT_EQ(0644u, mode());
    const ino_t first = inode();

    chmod(kPath, 0607);
    EXPECT_EQ(0, store(std::string(1000000, 'x')));
    EXPECT_EQ(std::string(1000000, 'x'), content());
    EXPECT_EQ(0607u, mode());
    EXPECT_NE(first, inode());
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(DurableFileTest, TheOwnerStaysOrTheFileIsWrittenInPlace)
{
    store("old");
    chmod(kPath, 0666);
    const bool canGive = chown(kPath, 1, 1) == 0; // not where only one user is known
    inThread([] {
        dropRootsPower();
        EXPECT_EQ(0, store("new"));
    });
    EXPECT_EQ("new", content());
    EXPECT_EQ(0, store("newer"));
    struct stat file {
    };
    stat(kPath, &file);
    EXPECT_EQ(canGive ? 1u : geteuid(), file.st_uid);
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(DurableFileTest, WhatCannotBeReplacedIsWrittenInPlace)
{
    store("a long old text", "/tmp/durable/dir/target");
    fs::create_symlink("target", kPath);
    EXPECT_EQ(0, store("linked"));
    EXPECT_TRUE(fs::is_symlink(kPath));
    EXPECT_EQ("linked", content("/tmp/durable/dir/target"));
    EXPECT_EQ(0, store("x", "/dev/null"));
    EXPECT_EQ(ENOSPC, store("x", "/dev/full"));

    fs::remove(kPath);
    store("a long old text");
    const ino_t before = inode();
    chmod(kDirectory, 0555);
    inThread([] {
        dropRootsPower();
        EXPECT_EQ(0, store("in place"));
        EXPECT_EQ(EACCES, store("new", "/tmp/durable/dir/another"));
    });
    EXPECT_EQ("in place", content());
    EXPECT_EQ(before, inode());

    store("mounted", "/tmp/durable/dir/target");
    ASSERT_EQ(0, mount("/tmp/durable/dir/target", kPath, nullptr, MS_BIND, nullptr));
    EXPECT_EQ(0, store("busy"));
    ASSERT_EQ(0, umount(kPath));
    EXPECT_EQ("busy", content("/tmp/durable/dir/target"));
}

TEST_F(DurableFileTest, AFailureLeavesTheOldFileAndNothingBesideIt)
{
    ASSERT_EQ(0, mount("small", kDirectory, "tmpfs", 0, "size=64k"));
    EXPECT_EQ(0, store("old"));
    EXPECT_EQ(ENOSPC, store(std::string(200000, 'x')));
    EXPECT_EQ("old", content());
    EXPECT_THAT(names(), ElementsAre("file"));
    EXPECT_EQ(EIO, writeDurably(kPath, [](std::ostream& out) {
                  out << "half";
                  out.setstate(std::ios::badbit);
              }));
    EXPECT_EQ("old", content());
    EXPECT_EQ(0, umount(kDirectory));

    EXPECT_EQ(ENOENT, store("x", "/tmp/no such directory/file"));
    EXPECT_EQ(EISDIR, store("x", "/tmp"));
}

TEST_F(DurableFileTest, EveryKindOfPathFindsItsDirectory)
{
    const fs::path before = fs::current_path();
    fs::current_path(kDirectory);
    EXPECT_EQ(0, store("relative", "file"));
    EXPECT_EQ("relative", content());
    const std::string longest(255, 'n');
    EXPECT_EQ(0, store("first", longest));
    EXPECT_EQ(0, store("long", "./" + longest));
    EXPECT_EQ("long", content(longest));
    EXPECT_EQ(ENAMETOOLONG, store("x", longest + "n"));
    fs::current_path(before);
}

TEST_F(DurableFileTest, MissingAbilitiesOfTheSystemCostNothingButTheWayRound)
{
    struct Case {
        std::function<void()> lose;
        const char* leftOverIn;
    };
    const Case cases[] = {
        {[] { refuse(SYS_openat, 2, O_TMPFILE & ~O_DIRECTORY, EOPNOTSUPP); }, kDirectory},
        {[] { refuse(SYS_linkat, 4, AT_EMPTY_PATH, ENOENT); }, kParent},
        {[] { refuse(SYS_openat, 2, O_PATH, EACCES); }, kDirectory},
#ifdef SYS_vfork
        {[] { refuse(SYS_vfork, 0, 0, EAGAIN); }, kParent},
#endif
    };
    for (const Case& c : cases) {
        struct stat directory {
        };
        stat(kDirectory, &directory);
        const std::string leftOver = ".file." + std::to_string(directory.st_ino) + ".~storing";
        ASSERT_TRUE(isShortLivedName(leftOver));
        std::ofstream(std::string(c.leftOverIn) + '/' + leftOver) << "left by a crash";
        inThread([&c] {
            c.lose();
            EXPECT_EQ(0, store("old"));
            chmod(kPath, 0600);
            EXPECT_EQ(0, store("new"));
            EXPECT_EQ(ENAMETOOLONG, store("x", kPath + std::string(256, 'n')));
        });
        EXPECT_EQ("new", content());
        EXPECT_EQ(0600u, mode());
        EXPECT_THAT(names(), ElementsAre("file"));
        EXPECT_THAT(names(kParent), ElementsAre("dir"));
        fs::remove(kPath);
    }
}

/// Puts out the text of one state: whole when all its lines are the same and the last is "end".
void writeState(std::ostream& out, int state)
{
    for (int line = 0; line < 2000; ++line)
        out << state << '\n';
    out << "end";
}

bool isWhole(const std::string& text)
{
    std::ostringstream wanted;
    writeState(wanted, std::atoi(text.c_str()));
    return text == wanted.str();
}

TEST_F(DurableFileTest, KilledAtAnyInstantTheFileIsWholeAndAlone)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0); // the killed process leaves its children to us
    std::mt19937 random(20240305);
    std::uniform_int_distribution<int> microseconds(0, 1500);
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        int storing[2];
        ASSERT_EQ(0, pipe(storing));
        const pid_t child = fork();
        for (int state = 1; child == 0; ++state) {
            writeDurably(kPath, [state](std::ostream& out) { writeState(out, state); });
            if (state == 1)
                close(storing[1]);
        }
        close(storing[1]);
        char none;
        EXPECT_EQ(0, read(storing[0], &none, 1)); // the end: the child has stored once
        close(storing[0]);
        usleep(static_cast<useconds_t>(microseconds(random)));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        ASSERT_THAT(names(), ElementsAre("file"));
        ASSERT_TRUE(isWhole(content()));
        while (waitpid(-1, nullptr, 0) > 0) {
            // What was under way in the parent directory finishes by itself.
        }
        ASSERT_THAT(names(kParent), ElementsAre("dir"));
    }
}

TEST(ShortLivedNameTest, OnlyTheStoresOwnNamesAreTakenForLeftOvers)
{
    EXPECT_TRUE(isShortLivedName(".cfg_stored_set.json.~storing"));
    EXPECT_TRUE(isShortLivedName(".n.~storing"));
    for (const char* name : {"", ".", "..", "cfg_stored_set.json", ".cfg_stored_set.json",
                             "n.~storing", "..~storing", ".~storing", ".n.~storing2"})
        EXPECT_FALSE(isShortLivedName(name)) << name;
}

} // namespace
