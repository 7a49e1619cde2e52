// SPDX-License-Identifier: MIT
//
// A sandbox with a directory for lock files, and code that the tests of the lock share.
#ifndef KESTROVA_TESTS_UNIT_SYSTEM_LOCKBOX_H
#define KESTROVA_TESTS_UNIT_SYSTEM_LOCKBOX_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <string>

#include "System/sysResourceLock.h"
#include "tests/support/sandbox.h"

namespace tests {

constexpr char kLockFolder[] = "/run/lock/kestrova";
constexpr char kDriveLock[] = "/run/lock/kestrova/drive.lock";
constexpr char kVarsLock[] = "/run/lock/kestrova/vars.lock";
constexpr unsigned kLockMinute = 60000;  // milliseconds

/// Runs a test's body in which /run is an empty file system, with an empty directory "lock".
inline void inLockBox(const std::function<void()>& body) {
    inSandbox([&body](Sandbox& /*box*/) {
        ASSERT_EQ(0, ::mkdir("/run", 0755));
        ASSERT_EQ(0, ::mount("run", "/run", "tmpfs", 0, "mode=0755"));
        ASSERT_EQ(0, ::mkdir("/run/lock", 0755));
        body();
    });
}

/// A child process that runs an action, without exit handlers. Its status is the action's result.
class Child {
public:
    explicit Child(const std::function<int()>& action) : mPid(::fork()) {
        if (mPid == 0) {
            ::_exit(action());
        }
    }
    ~Child() { (void)end(SIGKILL); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return mPid; }
    /// Waits until it has exited. Returns the raw status.
    int wait() {
        int status = 0;
        while (mPid > 0 && ::waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
        }
        mPid = -1;
        return status;
    }
    int end(int signal) {
        if (mPid > 0) {
            (void)::kill(mPid, signal);
        }
        return wait();
    }

private:
    pid_t mPid;
};

/// A pipe with which one process tells another that it has reached a point.
class Signpost {
public:
    Signpost() { EXPECT_EQ(0, ::pipe2(mEnds, O_CLOEXEC)); }
    ~Signpost() {
        (void)::close(mEnds[0]);
        (void)::close(mEnds[1]);
    }
    Signpost(const Signpost&) = delete;
    Signpost& operator=(const Signpost&) = delete;

    bool reach() { return ::write(mEnds[1], "r", 1) == 1; }
    bool await() {
        char byte = 0;
        return ::read(mEnds[0], &byte, 1) == 1;
    }

private:
    int mEnds[2] = {-1, -1};
};

}  // namespace tests

#endif
