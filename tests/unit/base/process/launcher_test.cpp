// SPDX-License-Identifier: MIT
//
// How children are started: signals, concurrent threads, and children without a program.
#include "base/process/launcher.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "base/process/shellcommand.h"
#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"
#include "tests/unit/base/childview.h"

namespace {

using base::Birth;
using base::ChildSettings;
using failingcalls::Call;
using tests::ChildView;
using tests::Findings;
using tests::inChild;
using tests::TempDir;

/// Starts a program and waits for it. Returns its raw status, or -1.
int run(const std::vector<std::string>& arguments, Birth birth) {
    const std::vector<const char*> pointers = base::pointersTo(arguments);
    ChildSettings settings;
    settings.mArguments = pointers.data();
    settings.mBirth = birth;
    int status = -1;
    const pid_t child = base::startChild(settings);
    return child > 0 && base::waitForChild(child, status) == child ? status : -1;
}

class LauncherTest : public testing::TestWithParam<Birth> {
protected:
    const TempDir mDirectory;
    const std::string mReport = mDirectory.path("report");

    bool runView() const { return run({KESTROVA_CHILDVIEW, mReport}, GetParam()) == 0; }
    /// Returns the blocked and ignored signals of the program that was run.
    std::string signals() const {
        const ChildView view(mReport);
        return view.only("SigBlk:") + " " + view.only("SigIgn:");
    }
};

// Includes the C library's own two signals, which its functions hide.
TEST_P(LauncherTest, SignalsThatAreIgnoredStayIgnoredAndNoOthersAre) {
    for (const int number : {SIGUSR1, SIGRTMAX, 32, 33}) {
        for (const bool ignored : {false, true}) {
            EXPECT_EQ("", inChild([&] {
                          unsigned long action[8] = {};
                          action[0] = reinterpret_cast<unsigned long>(ignored ? SIG_IGN : SIG_DFL);
                          if (::syscall(SYS_rt_sigaction, number, action, nullptr, 8) != 0) {
                              return std::string("cannot be set");
                          }
                          return std::string(runView() ? "" : "not run");
                      }));
            const std::uint64_t mask = std::stoull(ChildView(mReport).only("SigIgn:"), nullptr, 16);
            EXPECT_EQ(ignored, (mask >> (number - 1) & 1) != 0) << number;
        }
    }
}

TEST_P(LauncherTest, CallersMaskAndHandlersAreAsBefore) {
    EXPECT_EQ("", inChild([this] {
                  Findings findings;
                  sigset_t own;
                  (void)sigemptyset(&own);
                  (void)sigaddset(&own, SIGUSR2);
                  (void)pthread_sigmask(SIG_SETMASK, &own, nullptr);
                  static std::atomic<int> handled{0};
                  (void)::signal(SIGUSR1, [](int) { ++handled; });
                  findings.expect(runView(), "run");
                  sigset_t after;
                  (void)pthread_sigmask(SIG_SETMASK, nullptr, &after);
                  findings.expect(sigismember(&after, SIGUSR2) == 1, "blocked");
                  findings.expect(sigismember(&after, SIGUSR1) == 0, "not blocked");
                  findings.expect(::raise(SIGUSR1) == 0 && handled == 1, "handled");
                  return findings.text();
              }));
    EXPECT_EQ("0000000000000800", ChildView(mReport).only("SigBlk:"));
}

// A handler in a child would change the caller's memory, or a copy of it.
TEST_P(LauncherTest, NoHandlerRunsInAChild) {
    EXPECT_EQ("", inChild([] {
                  static std::atomic<int>* strangers = nullptr;
                  static pid_t owner = 0;
                  void* const page = ::mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
                  strangers = new (page) std::atomic<int>(0);
                  owner = ::getpid();
                  (void)::setpgid(0, 0);
                  (void)::signal(SIGUSR1, [](int) {
                      *strangers += static_cast<pid_t>(::syscall(SYS_getpid)) == owner ? 0 : 1;
                  });
                  std::atomic<bool> stop{false};
                  std::thread sender([&stop] {
                      while (!stop) {
                          (void)::kill(0, SIGUSR1);
                      }
                  });
                  for (int round = 0; round < 100; ++round) {
                      (void)run({"/bin/true"}, GetParam());
                  }
                  stop = true;
                  sender.join();
                  return std::string(*strangers == 0 ? "" : "a handler ran in a child");
              }));
}

// While a shell command runs, the whole process ignores Ctrl-C, but its children do not.
TEST_P(LauncherTest, WhatAShellCommandBorrowsIsNotInherited) {
    const std::string fifo = mDirectory.path("fifo");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    for (const bool ignoredAnyway : {false, true}) {
        EXPECT_EQ("", inChild([&] {
                      (void)::signal(SIGINT, ignoredAnyway ? SIG_IGN : SIG_DFL);
                      (void)::signal(SIGQUIT, SIG_DFL);
                      std::thread shell([&fifo] { (void)base::runShell("read line <" + fifo); });
                      // Returns when the command has opened the fifo.
                      const int release = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
                      const bool done = runView();
                      (void)::close(release);
                      shell.join();
                      return std::string(done ? "" : "not run");
                  }));
        EXPECT_EQ(ignoredAnyway ? "0000000000000002" : "0000000000000000",
                  ChildView(mReport).only("SigIgn:"));
    }
}

/// Returns the call that creates such a child.
Call beginning(Birth birth) {
    return birth == Birth::eOwnMemory ? Call::eFork : Call::eClone;
}

// During a start another thread also starts a child, and so does a child that was forked without a
// program: neither waits for the first start.
TEST_P(LauncherTest, StartsDoNotWaitForEachOther) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  failingcalls::before(beginning(GetParam()), [&findings] {
                      std::thread([&findings] {
                          const failingcalls::Exempt scope;
                          for (const Birth birth : {Birth::eOwnMemory, Birth::eSharedMemory}) {
                              findings.expect(run({"/bin/true"}, birth) == 0, "another thread");
                          }
                      }).join();
                      const pid_t child = ::fork();
                      if (child == 0) {
                          ::_exit(run({"/bin/true"}, Birth::eSharedMemory) == 0 ? 0 : 1);
                      }
                      int status = -1;
                      findings.expect(base::waitForChild(child, status) == child && status == 0,
                                      "a child without a program");
                  });
                  findings.expect(run({"/bin/true"}, GetParam()) == 0, "the first one");
                  return findings.text();
              }));
}

// A cancellation must end neither the thread, which would leak its child, nor the child, which
// opens a file for a missing stream, a cancellation point.
TEST_P(LauncherTest, ACancelledThreadFinishesItsStart) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::close(STDIN_FILENO);
                  pid_t child = 0;
                  failingcalls::before(beginning(GetParam()),
                                       [] { (void)pthread_cancel(pthread_self()); });
                  std::thread([&child] {
                      const char* const arguments[] = {"/bin/sh", "-c", "exit 3", nullptr};
                      ChildSettings settings;
                      settings.mArguments = arguments;
                      settings.mFillStreams = true;
                      settings.mBirth = GetParam();
                      child = base::startChild(settings);
                  }).join();
                  int status = -1;
                  findings.expect(child > 0 && base::waitForChild(child, status) == child, "child");
                  findings.expect(WEXITSTATUS(status) == 3, "program");
                  return findings.text();
              }));
}

TEST_P(LauncherTest, FailureToStartIsTold) {
    const failingcalls::Scope calls;
    failingcalls::fail(beginning(GetParam()), EAGAIN);
    const char* const arguments[] = {"/bin/true", nullptr};
    ChildSettings settings;
    settings.mArguments = arguments;
    settings.mBirth = GetParam();
    EXPECT_EQ(-1, base::startChild(settings));
    EXPECT_EQ(EAGAIN, errno);
}

INSTANTIATE_TEST_SUITE_P(Births, LauncherTest,
                         testing::Values(Birth::eOwnMemory, Birth::eSharedMemory),
                         [](const auto& birth) {
                             return birth.param == Birth::eOwnMemory ? "OwnMemory" : "SharedMemory";
                         });

}  // namespace
