// SPDX-License-Identifier: MIT
//
// Tools that die early, signals that come while a tool is waited for, and missing standard streams.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <future>
#include <string>

#include "base/linereader.h"
#include "base/tool.h"
#include "tests/base/childview.h"
#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"

namespace {

using base::Tool;
using base::ToolPipe;
using tests::ChildView;
using tests::Findings;
using tests::inChild;
using tests::TempDir;

/// Starts childview with one or two actions.
Tool::Start start(Tool& tool, ToolPipe pipe, const std::string& report, const char* action,
                  const char* second = nullptr) {
    const char* const arguments[] = {KESTROVA_CHILDVIEW, report.c_str(), action, second, nullptr};
    return tool.openPipe() ? tool.start({arguments, pipe, false, "Error spawning", 20})
                           : Tool::Start::eNoChild;
}

TEST(ToolSignalsTest, ToolThatIsGoneOnlyHasItsStatus) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ("", inChild([&report] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  for (int round = 0; round < 20; ++round) {
                      Tool tool;
                      findings.expect(start(tool, ToolPipe::eStandardInput, report, "exit:5") ==
                                          Tool::Start::eStarted,
                                      "start");
                      (void)std::fputs("a script that stays in the buffer\n", tool.stream());
                      findings.expect(WEXITSTATUS(tool.finish()) == 5, "status");
                  }
                  return findings.text();
              }));
}

// The child has ended for certain when the buffered text is written: it is a zombie already.
TEST(ToolSignalsTest, NoSigpipeWhenTheToolEndedBeforeTheText) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ("", inChild([&report] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  Tool tool;
                  findings.expect(start(tool, ToolPipe::eStandardInput, report, "exit:5") ==
                                      Tool::Start::eStarted,
                                  "start");
                  (void)std::fputs("text\n", tool.stream());
                  siginfo_t info = {};
                  findings.expect(::waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) == 0, "ended");
                  findings.expect(WEXITSTATUS(tool.finish()) == 5, "status");
                  sigset_t pending;
                  findings.expect(sigpending(&pending) == 0 && !sigismember(&pending, SIGPIPE),
                                  "nothing pending");
                  return findings.text();
              }));
}

void ignoreSignal(int /*signal*/) {}

struct sigaction handleWithoutRestart(int signal) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = ignoreSignal;
    EXPECT_EQ(0, ::sigaction(signal, &action, &before));
    return before;
}

TEST(ToolSignalsTest, InterruptedWaitGoesOn) {
    const TempDir directory;
    const failingcalls::Scope calls;
    Tool tool;
    ASSERT_EQ(Tool::Start::eStarted,
              start(tool, ToolPipe::eStandardOutput, directory.path("report"), "exit:7"));
    failingcalls::fail(failingcalls::Call::eWaitpid, EINTR);
    EXPECT_EQ(7, WEXITSTATUS(tool.finish()));
    EXPECT_EQ(2, failingcalls::count(failingcalls::Call::eWaitpid));
}

// A real signal, sent while the child still runs; it ends only afterwards.
TEST(ToolSignalsTest, SignalWhileTheToolRunsDoesNotLoseItsStatus) {
    const TempDir directory;
    const std::string fifo = directory.path("fifo");
    const std::string report = directory.path("report");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    const struct sigaction before = handleWithoutRestart(SIGUSR1);
    std::promise<pthread_t> thread;
    auto status = std::async(std::launch::async, [&] {
        Tool tool;
        EXPECT_EQ(Tool::Start::eStarted, start(tool, ToolPipe::eStandardOutput, report,
                                               ("await:" + fifo).c_str(), "exit:6"));
        thread.set_value(pthread_self());
        return tool.finish();
    });
    const pthread_t waiter = thread.get_future().get();
    for (int i = 0; i < 1000; ++i) {
        (void)pthread_kill(waiter, SIGUSR1);
    }
    const int release = ::open(fifo.c_str(), O_WRONLY);
    (void)::close(release);
    EXPECT_EQ(6, WEXITSTATUS(status.get()));
    EXPECT_EQ(0, ::sigaction(SIGUSR1, &before, nullptr));
}

TEST(ToolSignalsTest, ChildThatCannotBeWaitedForIsAFailure) {
    const TempDir directory;
    const std::string report = directory.path("report");
    {
        const failingcalls::Scope calls;
        Tool tool;
        ASSERT_EQ(Tool::Start::eStarted, start(tool, ToolPipe::eStandardOutput, report, "exit:0"));
        failingcalls::fail(failingcalls::Call::eWaitpid, EINVAL);
        EXPECT_EQ(-1, tool.finish());
    }
    EXPECT_GT(::waitpid(-1, nullptr, 0), 0);  // the one that was not waited for
    // An application that ignores SIGCHLD takes the status away.
    EXPECT_EQ(
        "", inChild([&report] {
            (void)::signal(SIGCHLD, SIG_IGN);
            Tool tool;
            if (start(tool, ToolPipe::eStandardOutput, report, "exit:0") != Tool::Start::eStarted) {
                return "start";
            }
            return tool.finish() == -1 ? "" : "status";
        }));
}

class ToolClosedStreamsTest : public testing::TestWithParam<int> {
protected:
    static bool closed(int number) { return (GetParam() & 1 << number) != 0; }
    /// Closes them; the others lead to a file of their own, whatever they were.
    static void closeThem() {
        const int own = ::open("/dev/zero", O_RDWR | O_CLOEXEC);
        for (int number = 0; number < 3; ++number) {
            (void)::dup2(own, number);
            if (closed(number)) {
                (void)::close(number);
            }
        }
        (void)::close(own);
    }
    /// What the child must find where there is no pipe.
    static void expectStream(const ChildView& view, int number) {
        EXPECT_EQ(closed(number) ? "/dev/null rw" : "/dev/zero rw", view.on(number)) << number;
    }
};

TEST_P(ToolClosedStreamsTest, OutputIsReadAndTheOthersAreThere) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ("", inChild([&report] {
                  closeThem();
                  Tool tool;
                  if (start(tool, ToolPipe::eStandardOutput, report, "say:out\n") !=
                      Tool::Start::eStarted) {
                      return "start";
                  }
                  char line[8] = "";
                  const bool read = base::readLine(tool.stream(), line, sizeof(line));
                  return read && std::string(line) == "out\n" && tool.finish() == 0 ? "" : "text";
              }));
    const ChildView view(report);
    EXPECT_EQ("0 1 2", view.numbers());
    expectStream(view, 0);
    EXPECT_EQ("pipe w", view.on(1));
    expectStream(view, 2);
}

TEST_P(ToolClosedStreamsTest, InputIsWrittenAndTheOthersAreThere) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ(
        "", inChild([&report] {
            closeThem();
            Tool tool;
            if (start(tool, ToolPipe::eStandardInput, report, "read") != Tool::Start::eStarted) {
                return "start";
            }
            return std::fputs("in", tool.stream()) >= 0 && tool.finish() == 0 ? "" : "text";
        }));
    const ChildView view(report);
    EXPECT_EQ("0 1 2", view.numbers());
    EXPECT_EQ("pipe r", view.on(0));
    EXPECT_EQ("in", view.only("input"));
    expectStream(view, 1);
    expectStream(view, 2);
}

INSTANTIATE_TEST_SUITE_P(Combinations, ToolClosedStreamsTest, testing::Range(0, 8));

}  // namespace
