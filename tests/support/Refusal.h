#pragma once

// System calls that the kernel refuses to a thread, as it would on a device that is short of
// something.

#include <cstddef>
#include <gtest/gtest.h>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

/// From here on the calling thread's system call fails when the argument has the flag; 0
/// stands for every call.
inline void refuse(long call, unsigned argument, unsigned flag, unsigned error)
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
