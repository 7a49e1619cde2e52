// SPDX-License-Identifier: MIT
//
// The login prompt on a serial port.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/unit/System/maintenance.h"

namespace {

using failingcalls::Call;
using tests::expectOnItsOwn;
using tests::gettyOn;
using tests::inSandbox;
using tests::makeNode;
using tests::reapAll;
using tests::Role;
using tests::Sandbox;
using tests::ToolRun;
using tests::utilities;
using tests::writeFile;

/// Starts a getty and returns how it was run; it has exited by then.
ToolRun runGetty(Sandbox& box, int port, const std::string& device) {
    box.expect(Role(gettyOn(device)).hold());
    const std::size_t before = box.runs().size();
    EXPECT_GT(utilities().SpawnGetty(port), 0);
    box.awaitHeld();  // it keeps running by itself
    const std::vector<ToolRun> runs = box.runs();
    box.release();
    EXPECT_EQ(1, reapAll());
    EXPECT_EQ(before + 1, runs.size());
    return runs.empty() ? ToolRun() : runs.back();
}

TEST(SysSuperUserUtilsTest, GettyTakesTheFirstOfItsDevices) {
    inSandbox([](Sandbox& box) {
        box.addTool("/sbin/getty");
        makeNode("/dev/ttyAS0");
        EXPECT_EQ(gettyOn("/dev/ttyAS0"), runGetty(box, 0, "/dev/ttyAS0").mArguments);
        makeNode("/dev/tts/0");
        EXPECT_EQ(gettyOn("/dev/tts/0"), runGetty(box, 0, "/dev/tts/0").mArguments);
        makeNode("/dev/ttyS0");
        EXPECT_EQ(gettyOn("/dev/ttyS0"), runGetty(box, 0, "/dev/ttyS0").mArguments);
        makeNode("/dev/ttyS7");
        EXPECT_EQ(gettyOn("/dev/ttyS7"), runGetty(box, 7, "/dev/ttyS7").mArguments);
    });
}

// The counter and the prompt have different second naming schemes.
TEST(SysSuperUserUtilsTest, PortThatIsCountedMayHaveNoGetty) {
    inSandbox([](Sandbox& box) {
        box.addTool("/sbin/getty");
        makeNode("/dev/tty/0");
        EXPECT_EQ(1U, utilities().GetNumSerial());
        for (const int port : {0, 1, -1, 2147483647}) {
            EXPECT_EQ(-1, utilities().SpawnGetty(port)) << port;
            EXPECT_EQ(ENOENT, errno);
        }
        EXPECT_EQ(0, reapAll());
        makeNode("/dev/tts/1");
        EXPECT_EQ(1U, utilities().GetNumSerial());
        (void)runGetty(box, 1, "/dev/tts/1");
    });
}

TEST(SysSuperUserUtilsTest, GettyHasNothingOfTheCaller) {
    inSandbox([](Sandbox& box) {
        box.addTool("/sbin/getty");
        makeNode("/dev/ttyS0");
        // Not close-on-exec, like an application's own descriptors.
        int ends[2] = {-1, -1};
        ASSERT_EQ(0, ::pipe2(ends, 0));
        ASSERT_EQ(900, ::fcntl(ends[1], F_DUPFD, 900));
        ASSERT_GE(::open("/tmp", O_RDONLY), 0);
        ASSERT_GE(::socket(AF_UNIX, SOCK_STREAM, 0), 0);
        ASSERT_EQ(0, ::chdir("/tmp"));
        sigset_t all;
        (void)::sigfillset(&all);
        (void)::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        (void)::signal(SIGINT, SIG_IGN);
        (void)::signal(SIGPIPE, SIG_IGN);
        expectOnItsOwn(runGetty(box, 0, "/dev/ttyS0"));
    });
}

TEST(SysSuperUserUtilsTest, GettyFromACallerWithoutStandardStreams) {
    for (int mask = 1; mask < 8; ++mask) {
        inSandbox([mask](Sandbox& box) {
            box.addTool("/sbin/getty");
            makeNode("/dev/ttyS0");
            int saved[3] = {-1, -1, -1};
            (void)std::fflush(stdout);
            for (int number = 0; number < 3; ++number) {
                if ((mask & 1 << number) != 0) {
                    saved[number] = ::fcntl(number, F_DUPFD_CLOEXEC, 900);
                    (void)::close(number);
                }
            }
            const ToolRun run = runGetty(box, 0, "/dev/ttyS0");
            for (int number = 0; number < 3; ++number) {
                if (saved[number] >= 0) {
                    (void)::dup2(saved[number], number);
                }
            }
            expectOnItsOwn(run);
        });
    }
}

TEST(SysSuperUserUtilsTest, NoProcessNoGetty) {
    inSandbox([](Sandbox& box) {
        box.addTool("/sbin/getty");
        makeNode("/dev/ttyS0");
        const failingcalls::Scope calls;
        failingcalls::fail(Call::eFork, EAGAIN);
        EXPECT_EQ(-1, utilities().SpawnGetty(0));
        EXPECT_EQ(EAGAIN, errno);
        EXPECT_EQ(0, failingcalls::count(Call::eWaitpid));
        EXPECT_EQ(0, reapAll());
        EXPECT_TRUE(box.runs().empty());
    });
}

TEST(SysSuperUserUtilsTest, WaitIsTakenUpAgainAndItsFailureTold) {
    inSandbox([](Sandbox& box) {
        box.addTool("/sbin/getty");
        makeNode("/dev/ttyS0");
        box.allow(Role(gettyOn("/dev/ttyS0")));
        const failingcalls::Scope calls;
        failingcalls::fail(Call::eWaitpid, EINTR);
        EXPECT_GT(utilities().SpawnGetty(0), 0);
        EXPECT_EQ(2, failingcalls::count(Call::eWaitpid));
        EXPECT_EQ(1, reapAll());
        failingcalls::fail(Call::eWaitpid, ECHILD);
        EXPECT_EQ(-1, utilities().SpawnGetty(0));
        EXPECT_EQ(ECHILD, errno);
        EXPECT_EQ(2, reapAll());
    });
}

// No failure is reported, because the streams are /dev/null, and none of the caller's code runs
// twice.
TEST(SysSuperUserUtilsTest, GettyThatCannotBeExecuted) {
    inSandbox([](Sandbox& box) {
        makeNode("/dev/ttyS0");
        const tests::Capture capture;
        EXPECT_GT(utilities().SpawnGetty(0), 0);
        EXPECT_EQ(1, reapAll());
        writeFile("/sbin/getty", "not executable");
        EXPECT_GT(utilities().SpawnGetty(0), 0);
        EXPECT_EQ(1, reapAll());
        EXPECT_EQ("", capture.output() + capture.errors());
        EXPECT_TRUE(box.runs().empty());
    });
}

TEST(SysSuperUserUtilsTest, ChildThatCannotBeDetachedRunsNoGetty) {
    inSandbox([](Sandbox& box) {
        box.addTool("/sbin/getty");
        makeNode("/dev/ttyS0");
        ASSERT_EQ(0, ::umount("/dev/null"));
        ASSERT_EQ(0, ::unlink("/dev/null"));
        EXPECT_GT(utilities().SpawnGetty(0), 0);
        EXPECT_EQ(1, reapAll());
        EXPECT_TRUE(box.runs().empty());
    });
}

}  // namespace
