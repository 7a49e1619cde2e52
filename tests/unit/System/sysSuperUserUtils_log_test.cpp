// SPDX-License-Identifier: MIT
//
// The restart of the log daemon, and what both daemons inherit from concurrent operations.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "base/process/tool.h"
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

/// A sandbox with the log tools in the shell's search path.
void provideLogTools(Sandbox& box) {
    box.addTool("/bin/killall");
    box.addTool("/sbin/syslogd");
    ASSERT_EQ(0, ::setenv("PATH", "/bin:/sbin", 1));
}

double secondsOf(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

TEST(SysSuperUserUtilsTest, LogDaemonIsEndedAndStartedASecondLater) {
    inSandbox([](Sandbox& box) {
        provideLogTools(box);
        box.expect(Role({"killall", "syslogd"}));
        box.expect(Role({"/sbin/syslogd", "-C", "-R", "10.0.200.255"}));
        EXPECT_GE(secondsOf([] { utilities().RestartRemoteLog(0x0a00c8ffU); }), 1.0);
        EXPECT_EQ(0, reapAll());
        ASSERT_EQ(2U, box.runs().size());
    });
}

TEST(SysSuperUserUtilsTest, WithoutAddressThereIsNoRemoteTarget) {
    inSandbox([](Sandbox& box) {
        provideLogTools(box);
        box.expect(Role({"killall", "syslogd"}));
        box.expect(Role({"/sbin/syslogd", "-C"}));
        utilities().RestartRemoteLog(0);
        ASSERT_EQ(2U, box.runs().size());
    });
}

TEST(SysSuperUserUtilsTest, EveryOctetOfTheAddressCounts) {
    inSandbox([](Sandbox& box) {
        provideLogTools(box);
        box.allow(Role({"killall", "syslogd"}));
        box.expect(Role({"/sbin/syslogd", "-C", "-R", "255.255.255.255"}));
        utilities().RestartRemoteLog(0xffffffffU);
        box.expect(Role({"/sbin/syslogd", "-C", "-R", "0.0.0.1"}));
        utilities().RestartRemoteLog(1);
    });
}

// There may be no daemon, or no such tool; a new one that does not start is not reported.
TEST(SysSuperUserUtilsTest, FailuresOfTheToolsAreNotExamined) {
    inSandbox([](Sandbox& box) {
        provideLogTools(box);
        box.expect(Role({"killall", "syslogd"}).exit(1));
        box.expect(Role({"/sbin/syslogd", "-C"}).die(SIGKILL));
        utilities().RestartRemoteLog(0);
        box.removeTool("/bin/killall");
        box.expect(Role({"/sbin/syslogd", "-C"}).exit(1));
        {
            const tests::Capture capture;
            utilities().RestartRemoteLog(0);
            EXPECT_NE(std::string::npos, capture.errors().find("killall"));
        }
        const failingcalls::Scope calls;
        failingcalls::failAll(Call::eSystem, EAGAIN);
        utilities().RestartRemoteLog(0);
        EXPECT_EQ(2, failingcalls::count(Call::eSystem));
        EXPECT_EQ(3U, box.runs().size());
    });
}

TEST(SysSuperUserUtilsTest, SignalsDoNotShortenThePause) {
    inSandbox([](Sandbox& box) {
        provideLogTools(box);
        box.expect(Role({"killall", "syslogd"}));
        box.expect(Role({"/sbin/syslogd", "-C"}));
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        ASSERT_EQ(0, ::sigaction(SIGALRM, &action, nullptr));
        constexpr suseconds_t interval = 20000;
        const itimerval often = {{0, interval}, {0, interval}};
        ASSERT_EQ(0, ::setitimer(ITIMER_REAL, &often, nullptr));
        EXPECT_GE(secondsOf([] { utilities().RestartRemoteLog(0); }), 1.0);
        const itimerval never = {};
        ASSERT_EQ(0, ::setitimer(ITIMER_REAL, &never, nullptr));
    });
}

pid_t onlyChild() {
    const std::string path = "/proc/self/task/" + std::to_string(::gettid()) + "/children";
    const std::string text = tests::readFile(path);
    return text.empty() ? -1 : std::stoi(text);
}

/// Starts both daemons, and checks what they inherit.
void startBoth(Sandbox& box) {
    EXPECT_GT(utilities().SpawnGetty(0), 0);
    box.awaitHeld();
    utilities().RestartRemoteLog(0);
    const std::vector<ToolRun> runs = box.runs();
    ASSERT_EQ(3U, runs.size());
    expectOnItsOwn(runs[0]);
    for (const ToolRun& run : {runs[1], runs[2]}) {
        EXPECT_EQ(3U, run.mDescriptors.size());
        EXPECT_EQ(0U, run.mDescriptors.count(3));
    }
}

TEST(SysSuperUserUtilsTest, GettyAndLogDaemonKeepNothingOfWhatRunsBesideThem) {
    inSandbox([](Sandbox& box) {
        provideLogTools(box);
        box.addTool("/sbin/getty");
        makeNode("/dev/ttyS0");
        box.expect(Role(gettyOn("/dev/ttyS0")).hold());
        box.expect(Role({"killall", "syslogd"}));
        box.expect(Role({"/sbin/syslogd", "-C"}));
        // Concurrently: the socket of a fetch, and a running tool of a format.
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_GE(socket, 0);
        base::ToolCommand command;
        command.mArguments = {"/bin/sh", "-c", "echo begun; exec /usr/bin/sleep 1000"};
        const base::ToolResult result = base::readTool(command, [&box](std::FILE* output) {
            char line[16] = "";
            ASSERT_NE(nullptr, std::fgets(line, sizeof(line), output));
            const pid_t tool = onlyChild();
            startBoth(box);
            // The tool's exit ends its output, although the getty still runs.
            ASSERT_EQ(0, ::kill(tool, SIGKILL));
            EXPECT_EQ(EOF, std::fgetc(output));
        });
        EXPECT_EQ(SIGKILL, result.mStatus);
        (void)::close(socket);
        box.release();
        EXPECT_EQ(1, reapAll());
    });
}

}  // namespace
