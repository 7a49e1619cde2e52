// SPDX-License-Identifier: MIT
//
// Tools that die early, signals during the wait for a tool, and missing standard streams.
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

#include "base/process/tool.h"
#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"
#include "tests/unit/base/process/childviewtool.h"

namespace {

using base::ToolResult;
using tests::ChildView;
using tests::childViewTool;
using tests::Findings;
using tests::inChild;
using tests::readOutput;
using tests::TempDir;

TEST(ToolSignalsTest, ToolThatIsGoneOnlyHasItsStatus) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ("", inChild([&report] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  for (int round = 0; round < 20; ++round) {
                      const ToolResult result =
                          base::feedTool(childViewTool(report, {"exit:5"}), "a script\n");
                      findings.expect(result.mRan, "start");
                      findings.expect(WEXITSTATUS(result.mStatus) == 5, "status");
                  }
                  return findings.text();
              }));
}

// The child is already a zombie when the text is written.
TEST(ToolSignalsTest, NoSigpipeWhenTheToolEndedBeforeTheText) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ("", inChild([&report] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  failingcalls::before(failingcalls::Call::eFdopen, [&findings] {
                      siginfo_t info = {};
                      findings.expect(::waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) == 0, "ended");
                  });
                  const ToolResult result =
                      base::feedTool(childViewTool(report, {"exit:5"}), "text\n");
                  findings.expect(WEXITSTATUS(result.mStatus) == 5, "status");
                  findings.expect(result.mError == EPIPE, "error");
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
    failingcalls::fail(failingcalls::Call::eWaitpid, EINTR);
    std::string output;
    const ToolResult result =
        readOutput(childViewTool(directory.path("report"), {"exit:7"}), output);
    EXPECT_EQ(7, WEXITSTATUS(result.mStatus));
    EXPECT_EQ(2, failingcalls::count(failingcalls::Call::eWaitpid));
}

// A real signal, sent while the child runs; the child exits afterwards.
TEST(ToolSignalsTest, SignalWhileTheToolRunsDoesNotLoseItsStatus) {
    const TempDir directory;
    const std::string fifo = directory.path("fifo");
    const std::string report = directory.path("report");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    const struct sigaction before = handleWithoutRestart(SIGUSR1);
    std::promise<pthread_t> thread;
    auto result = std::async(std::launch::async, [&] {
        return base::readTool(childViewTool(report, {"await:" + fifo, "exit:6"}),
                              [&](std::FILE*) { thread.set_value(pthread_self()); });
    });
    const pthread_t waiter = thread.get_future().get();
    for (int i = 0; i < 1000; ++i) {
        (void)pthread_kill(waiter, SIGUSR1);
    }
    const int release = ::open(fifo.c_str(), O_WRONLY);
    (void)::close(release);
    EXPECT_EQ(6, WEXITSTATUS(result.get().mStatus));
    EXPECT_EQ(0, ::sigaction(SIGUSR1, &before, nullptr));
}

TEST(ToolSignalsTest, ChildThatCannotBeWaitedForIsAFailure) {
    const TempDir directory;
    const std::string report = directory.path("report");
    std::string output;
    {
        const failingcalls::Scope calls;
        failingcalls::fail(failingcalls::Call::eWaitpid, EINVAL);
        const ToolResult result = readOutput(childViewTool(report, {"exit:0"}), output);
        EXPECT_TRUE(result.mRan);
        EXPECT_EQ(-1, result.mStatus);
        EXPECT_EQ(EINVAL, result.mError);
    }
    EXPECT_GT(::waitpid(-1, nullptr, 0), 0);  // the one that was not waited for
    // An application that ignores SIGCHLD loses the status.
    EXPECT_EQ("", inChild([&] {
                  (void)::signal(SIGCHLD, SIG_IGN);
                  const ToolResult result = readOutput(childViewTool(report, {"exit:0"}), output);
                  return result.mRan && result.mStatus == -1 ? "" : "status";
              }));
}

class ToolClosedStreamsTest : public testing::TestWithParam<int> {
protected:
    static bool closed(int number) { return (GetParam() & 1 << number) != 0; }
    /// Closes them; the others are redirected to /dev/zero.
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
    /// Expects the child's stream where there is no pipe.
    static void expectStream(const ChildView& view, int number) {
        EXPECT_EQ(closed(number) ? "/dev/null rw" : "/dev/zero rw", view.on(number)) << number;
    }
};

TEST_P(ToolClosedStreamsTest, OutputIsReadAndTheOthersAreThere) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ("", inChild([&report] {
                  closeThem();
                  std::string output;
                  const ToolResult result =
                      readOutput(childViewTool(report, {"say:out\n"}), output);
                  return result.succeeded() && output == "out\n" ? "" : "text";
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
    EXPECT_EQ("", inChild([&report] {
                  closeThem();
                  return base::feedTool(childViewTool(report, {"read"}), "in").succeeded() ? ""
                                                                                           : "text";
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
