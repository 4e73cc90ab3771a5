#include "base/AtomicFile.h"
#include "ChildProcess.h"

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <random>
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

class AtomicFileTest : public testing::Test
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
        return replaceFileAtomically(path, [&text](std::ostream& out) { out << text; });
    }

    static std::vector<std::string> names(const char* directory = kDirectory)
    {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(directory))
            found.push_back(entry.path().filename());
        return found;
    }

    static struct stat status(const char* path = kPath)
    {
        struct stat result = {};
        stat(path, &result);
        return result;
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

    static void inThread(const std::function<void()>& work) { std::thread(work).join(); }

    /// File permissions hold in the thread that does the work, although it is root's.
    static void withoutCapabilities(const std::function<void()>& work)
    {
        inThread([&work] {
            __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
            const __user_cap_data_struct none[2] = {};
            ASSERT_EQ(0, syscall(SYS_capset, &header, none));
            work();
        });
    }

    static constexpr char kParent[] = "/tmp/atomic";
    static constexpr char kDirectory[] = "/tmp/atomic/dir";
    static constexpr char kPath[] = "/tmp/atomic/dir/file";
};

TEST_F(AtomicFileTest, ANewFileHasTheUsualModeAndAReplacedOneKeepsItsModeAndOwner)
{
    EXPECT_EQ(0, store("first"));
    EXPECT_EQ("first", readFile(kPath));
    const struct stat first = status();
    EXPECT_EQ(0644u, first.st_mode & 07777);
    chmod(kPath, 0606);
    const bool canGive = chown(kPath, 1, 1) == 0; // not where only one user is known
    EXPECT_EQ(0, store(std::string(1000000, 'x')));
    EXPECT_EQ(std::string(1000000, 'x'), readFile(kPath));
    EXPECT_EQ(0606u, status().st_mode & 07777);
    EXPECT_EQ(canGive ? 1u : geteuid(), status().st_uid);
    EXPECT_NE(first.st_ino, status().st_ino);

    withoutCapabilities([] { EXPECT_EQ(0, store("in place where the owner cannot be kept")); });
    EXPECT_EQ("in place where the owner cannot be kept", readFile(kPath));
    EXPECT_EQ(canGive ? 1u : geteuid(), status().st_uid);
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(AtomicFileTest, WhatCannotBeReplacedIsWrittenInPlace)
{
    const std::string target = "/tmp/atomic/dir/target";
    store("a long old text", target);
    fs::create_symlink("target", kPath);
    EXPECT_EQ(0, store("linked"));
    EXPECT_TRUE(fs::is_symlink(kPath));
    EXPECT_EQ("linked", readFile(target));
    EXPECT_EQ(ENOSPC, store("x", "/dev/full"));

    fs::remove(kPath);
    store("old");
    const ino_t before = status().st_ino;
    chmod(kDirectory, 0555);
    withoutCapabilities([] {
        EXPECT_EQ(0, store("in place"));
        EXPECT_EQ(EACCES, store("new", "/tmp/atomic/dir/another"));
    });
    EXPECT_EQ("in place", readFile(kPath));
    EXPECT_EQ(before, status().st_ino);

    ASSERT_EQ(0, mount(target.c_str(), kPath, nullptr, MS_BIND, nullptr));
    EXPECT_EQ(0, store("busy"));
    ASSERT_EQ(0, umount(kPath));
    EXPECT_EQ("busy", readFile(target));
}

TEST_F(AtomicFileTest, AFailureLeavesTheOldFileAndNothingBesideIt)
{
    ASSERT_EQ(0, mount("small", kDirectory, "tmpfs", 0, "size=64k"));
    EXPECT_EQ(0, store("old"));
    EXPECT_EQ(ENOSPC, store(std::string(200000, 'x')));
    EXPECT_EQ(EIO, replaceFileAtomically(kPath, [](std::ostream& out) {
                  out << "half";
                  out.setstate(std::ios::badbit);
              }));
    EXPECT_EQ("old", readFile(kPath));
    EXPECT_THAT(names(), ElementsAre("file"));
    EXPECT_EQ(0, umount(kDirectory));
    EXPECT_EQ(ENOENT, store("x", "/tmp/no such directory/file"));
    EXPECT_EQ(EISDIR, store("x", "/tmp"));
}

TEST_F(AtomicFileTest, EveryKindOfPathFindsItsDirectory)
{
    fs::current_path(kDirectory);
    const std::string longest(255, 'n');
    for (const char* text : {"first", "second"})
        EXPECT_EQ(0, store(text, longest));
    EXPECT_EQ("second", readFile(kDirectory + ('/' + longest)));
    EXPECT_EQ(ENAMETOOLONG, store("x", longest + "n"));
    fs::current_path("/tmp");
}

TEST_F(AtomicFileTest, ReplacesTheFileAlsoWhereTheKernelRefusesACall)
{
    const std::pair<std::function<void()>, std::string> cases[] = {
        // where a stale file stands
        {[] { refuse(SYS_openat, 2, O_TMPFILE & ~O_DIRECTORY, EOPNOTSUPP); }, kDirectory},
        {[] { refuse(SYS_linkat, 4, AT_EMPTY_PATH, ENOENT); }, kParent},
        {[] { refuse(SYS_openat, 2, O_PATH, EACCES); }, kDirectory},
#ifdef SYS_vfork
        {[] { refuse(SYS_vfork, 0, 0, EAGAIN); }, kParent},
#endif
    };
    for (const auto& [refuseCall, staleIn] : cases) {
        const std::string inode = std::to_string(status(kDirectory).st_ino);
        writeFile(staleIn + "/.file." + inode + ".~storing", "left by a crash");
        inThread([&refuseCall = refuseCall] {
            refuseCall();
            EXPECT_EQ(0, store("old"));
            chmod(kPath, 0600);
            EXPECT_EQ(0, store("new"));
            EXPECT_EQ(ENAMETOOLONG, store("x", kPath + std::string(256, 'n')));
        });
        EXPECT_EQ("new", readFile(kPath));
        EXPECT_EQ(0600u, status().st_mode & 07777);
        EXPECT_THAT(names(), ElementsAre("file"));
        EXPECT_THAT(names(kParent), ElementsAre("dir"));
        fs::remove(kPath);
    }
}

TEST_F(AtomicFileTest, AfterAKillAtAnyInstantTheFileIsWholeAndNothingElseIsThere)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0); // the killed process leaves its children to us
    std::mt19937 random(20240305);
    std::uniform_int_distribution<useconds_t> microseconds(0, 3000);
    const auto filledWith = [](char filling) { return std::string(10000, filling); };
    store(filledWith('-'));
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const pid_t child = fork();
        for (char filling = 'a'; child == 0; filling ^= 1)
            store(filledWith(filling));
        usleep(microseconds(random));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        ASSERT_THAT(names(), ElementsAre("file"));
        const std::string found = readFile(kPath); // the next one may still come into its place
        ASSERT_EQ(filledWith(found[0]), found);
        while (waitpid(-1, nullptr, 0) > 0) {
            // What was under way in the parent directory finishes by itself.
        }
        ASSERT_THAT(names(kParent), ElementsAre("dir"));
    }
    EXPECT_NE(filledWith('-'), readFile(kPath)) << "no child came to store";
}

TEST(TempFileNameTest, OnlyTemporaryNamesAreTakenForStaleFiles)
{
    EXPECT_TRUE(isTempFileName(".cfg_stored_set.json.12.~storing"));
    for (const char* name : {"", "..", "set.json", ".set.json", "n.~storing", ".~storing",
                             "..~storing", ".n.~storing2"})
        EXPECT_FALSE(isTempFileName(name)) << name;
}

} // namespace
