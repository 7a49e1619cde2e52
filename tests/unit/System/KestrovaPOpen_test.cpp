// SPDX-License-Identifier: MIT
//
// Shell commands with pipes, and how they end.
#include "System/KestrovaPOpen.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <future>
#include <set>
#include <string>

#include "tests/support/capture.h"
#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/hooks.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"

namespace {

using failingcalls::Call;
using tests::openDescriptors;
using tests::readToEnd;

constexpr int kUntouched = -77;

/// Returns how a command ended, as "state/status".
std::string endOf(int pid) {
    int status = kUntouched;
    const int state = kestrova_pstatus(pid, status, true);
    return std::to_string(state) + "/" + std::to_string(status);
}

std::string outputOf(const char* command) {
    int out = -1;
    const int pid = kestrova_popen3(nullptr, &out, nullptr, command);
    EXPECT_GT(pid, 0);
    const std::string text = readToEnd(out);
    EXPECT_EQ("1/0", endOf(pid));
    return text;
}

void expectNoChild() {
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

bool write(int descriptor, const std::string& text) {
    return ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

TEST(KestrovaPopen3Test, AllThreePipesReachTheShellsCommand) {
    const std::set<int> before = openDescriptors();
    int in = -1;
    int out = -1;
    int err = -1;
    const int pid =
        kestrova_popen3(&in, &out, &err, "read a b; echo \"$b $a\"; echo $0 >&2; exit 3");
    ASSERT_GT(pid, 0);
    for (const int end : {in, out, err}) {
        ASSERT_GT(end, 2);
        EXPECT_EQ(FD_CLOEXEC, ::fcntl(end, F_GETFD));
    }
    EXPECT_TRUE(write(in, "one two\n"));
    (void)::close(in);
    EXPECT_EQ("two one\n", readToEnd(out));
    EXPECT_EQ("/bin/sh\n", readToEnd(err));
    EXPECT_EQ("1/3", endOf(pid));
    EXPECT_EQ(before, openDescriptors());
    expectNoChild();
}

TEST(KestrovaPopen3Test, WhatIsNotPipedIsTheCallersOwn) {
    const tests::Capture capture;
    const int pid = kestrova_popen3(nullptr, nullptr, nullptr, "echo out; echo err >&2");
    EXPECT_EQ("1/0", endOf(pid));
    EXPECT_EQ("out\n", capture.output());
    EXPECT_EQ("err\n", capture.errors());
}

TEST(KestrovaPopen3Test, EnvironmentIsTheCallersOwn) {
    ASSERT_EQ(0, ::setenv("KESTROVA_TEST", "first value", 1));
    EXPECT_EQ("first value\n", outputOf("echo \"$KESTROVA_TEST\""));
    ASSERT_EQ(0, ::unsetenv("KESTROVA_TEST"));
    EXPECT_EQ("unset\n", outputOf("echo \"${KESTROVA_TEST-unset}\""));
    EXPECT_EQ("", tests::inChild([] {
                  (void)::clearenv();
                  return outputOf("echo \"${HOME-unset}\"") == "unset\n" ? "" : "environment";
              }));
}

TEST(KestrovaPopen3Test, EndsByExitCodeAndBySignal) {
    const tests::Capture capture;  // a shell may report how its command died
    struct End {
        const char* mCommand;
        const char* mEnd;
    };
    for (const End& end :
         {End{"exit 0", "1/0"}, End{"exit 3", "1/3"}, End{"exit 255", "1/255"},
          End{"kill -9 $$", "2/9"}, End{"kill -TERM $$", "2/15"}, End{"/nowhere/at/all", "1/127"},
          End{"/dev/null", "1/126"}, End{"if", "1/2"}, End{"", "1/0"}}) {
        EXPECT_EQ(end.mEnd, endOf(kestrova_popen3(nullptr, nullptr, nullptr, end.mCommand)))
            << end.mCommand;
    }
    expectNoChild();
}

TEST(KestrovaPopen3Test, FloodArrivesWhole) {
    int out = -1;
    const int pid = kestrova_popen3(nullptr, &out, nullptr, "yes 1234567 | head -c 20000000");
    const std::string text = readToEnd(out);
    EXPECT_EQ(20000000U, text.size());
    EXPECT_EQ("1234567\n1234567\n", text.substr(text.size() - 16));
    EXPECT_EQ("1/0", endOf(pid));
}

TEST(KestrovaPopen3Test, FloodThatNobodyReadsAnyMoreEndsByBrokenPipe) {
    int out = -1;
    const int pid = kestrova_popen3(nullptr, &out, nullptr, "exec yes");
    char some[100];
    EXPECT_LT(0, ::read(out, some, sizeof(some)));
    (void)::close(out);
    EXPECT_EQ("2/" + std::to_string(SIGPIPE), endOf(pid));
}

// A closed output does not mean that the child has exited.
TEST(KestrovaPopen3Test, ChildThatClosesItsStreamsRunsOn) {
    int in = -1;
    int out = -1;
    int err = -1;
    const int pid =
        kestrova_popen3(&in, &out, &err, "printf half; exec >&- 2>&-; read line; exit 5");
    EXPECT_EQ("half", readToEnd(out));
    EXPECT_EQ("", readToEnd(err));
    int status = kUntouched;
    EXPECT_EQ(eCsRunning, kestrova_pstatus(pid, status, false));
    EXPECT_EQ(kUntouched, status);
    (void)::close(in);
    EXPECT_EQ("1/5", endOf(pid));
}

bool atEnd(int descriptor) {
    pollfd end = {descriptor, POLLIN, 0};
    return ::poll(&end, 1, 0) == 1 && (end.revents & POLLIN) == 0;
}

// A grandchild that has inherited the pipe keeps it open.
TEST(KestrovaPopen3Test, GrandchildKeepsThePipe) {
    const tests::TempDir directory;
    const std::string fifo = directory.path("fifo");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    int out = -1;
    const std::string command = "(read line <" + fifo + "; echo late) & exit 4";
    const int pid = kestrova_popen3(nullptr, &out, nullptr, command.c_str());
    EXPECT_EQ("1/4", endOf(pid));
    EXPECT_FALSE(atEnd(out));
    const int release = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_TRUE(write(release, "go\n"));
    (void)::close(release);
    EXPECT_EQ("late\n", readToEnd(out));
}

TEST(KestrovaPopen3Test, FailureLeavesNothingBehind) {
    struct Failing {
        Call mCall;
        int mNth;
    };
    for (const Failing& failing : {Failing{Call::ePipe2, 1}, Failing{Call::ePipe2, 2},
                                   Failing{Call::ePipe2, 3}, Failing{Call::eClone, 1}}) {
        const std::set<int> before = openDescriptors();
        int ends[3] = {kUntouched, kUntouched, kUntouched};
        const failingcalls::Scope calls;
        failingcalls::fail(failing.mCall, EAGAIN, failing.mNth);
        EXPECT_GT(0, kestrova_popen3(&ends[0], &ends[1], &ends[2], "true"));
        EXPECT_EQ(EAGAIN, errno);
        for (const int end : ends) {
            EXPECT_EQ(kUntouched, end);
        }
        EXPECT_EQ(before, openDescriptors());
        expectNoChild();
    }
}

// The kernel's limit for one argument: 32 pages of 4 KiB, including the terminator.
TEST(KestrovaPopen3Test, CommandOfTheKernelsLongestRunsAndALongerOneFails) {
    constexpr std::size_t longest = 131071;
    const std::string command = "printf longest #";
    const std::string fits = command + std::string(longest - command.size(), 'x');
    EXPECT_EQ("longest", outputOf(fits.c_str()));
    const std::set<int> before = openDescriptors();
    int out = kUntouched;
    EXPECT_GT(0, kestrova_popen3(nullptr, &out, nullptr, (fits + "x").c_str()));
    EXPECT_EQ(E2BIG, errno);
    EXPECT_EQ(kUntouched, out);
    EXPECT_EQ(before, openDescriptors());
    expectNoChild();
}

// The first half of a command is a different command.
TEST(KestrovaVpopen3Test, CommandWhoseConversionFailsDoesNotRun) {
    const tests::TempDir directory;
    const std::string trace = directory.path("trace");
    // No locale has this character.
    const wchar_t text[] = {static_cast<wchar_t>(0x7fffffff), L'\0'};
    int in = kUntouched;
    errno = 0;
    EXPECT_GT(0, kestrova_vpopen3(&in, nullptr, nullptr, "touch %s; %ls", trace.c_str(), text));
    EXPECT_EQ(EILSEQ, errno);
    EXPECT_EQ(kUntouched, in);
    expectNoChild();
    EXPECT_EQ(-1, ::access(trace.c_str(), F_OK));
}

// A formatted command has at most 255 characters.
TEST(KestrovaVpopen3Test, LongerCommandsAreCut) {
    const std::string command = "printf %s ";
    for (const std::size_t length : {200U, 254U, 255U, 256U, 257U, 5000U}) {
        const std::string argument(length - command.size(), 'a');
        const std::size_t kept = std::min<std::size_t>(length, 255) - command.size();
        int out = -1;
        const int pid =
            kestrova_vpopen3(nullptr, &out, nullptr, "%s%s", command.c_str(), argument.c_str());
        EXPECT_EQ(std::string(kept, 'a'), readToEnd(out)) << length;
        EXPECT_EQ("1/0", endOf(pid));
    }
}

TEST(KestrovaVpopen3Test, FormatsAndConnectsLikeTheOther) {
    int in = -1;
    int out = -1;
    int err = -1;
    const int pid = kestrova_vpopen3(&in, &out, &err, "cat; echo %s%d >&2; exit %d", "%n", 7, 9);
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(write(in, "through"));
    (void)::close(in);
    EXPECT_EQ("through", readToEnd(out));
    EXPECT_EQ("%n7\n", readToEnd(err));
    EXPECT_EQ("1/9", endOf(pid));
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eClone, ENOMEM);
    EXPECT_GT(0, kestrova_vpopen3(nullptr, nullptr, nullptr, "true"));
}

TEST(KestrovaPstatusTest, RunningChildLeavesTheStatusAlone) {
    int in = -1;
    const int pid = kestrova_popen3(&in, nullptr, nullptr, "read line; exit 6");
    int status = kUntouched;
    EXPECT_EQ(eCsRunning, kestrova_pstatus(pid, status, false));
    EXPECT_EQ(kUntouched, status);
    (void)::close(in);
    while (kestrova_pstatus(pid, status, false) == eCsRunning) {
        EXPECT_EQ(kUntouched, status);
    }
    EXPECT_EQ(6, status);
    // The child has already been reaped.
    status = kUntouched;
    EXPECT_EQ(eCsWaitFailed, kestrova_pstatus(pid, status, true));
    EXPECT_EQ(kUntouched, status);
    EXPECT_EQ(ECHILD, errno);
}

// A stopped child has not exited, and stops were not requested.
TEST(KestrovaPstatusTest, StoppedChildStillRuns) {
    const int pid = kestrova_popen3(nullptr, nullptr, nullptr, "kill -STOP $$; exit 8");
    siginfo_t info = {};
    EXPECT_EQ(0, ::waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WNOWAIT));
    int status = kUntouched;
    EXPECT_EQ(eCsRunning, kestrova_pstatus(pid, status, false));
    EXPECT_EQ(kUntouched, status);
    EXPECT_EQ(0, ::kill(pid, SIGCONT));
    EXPECT_EQ("1/8", endOf(pid));
}

// Only the stop of a traced child is reported without being requested.
TEST(KestrovaPstatusTest, StopOfATracedChild) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            ::_exit(77);
        }
        (void)::raise(SIGSTOP);
        ::_exit(3);
    }
    int status = kUntouched;
    const int state = kestrova_pstatus(pid, status, true);
    if (state == eCsExited && status == 77) {
        GTEST_SKIP() << "nothing can be traced here";
    }
    EXPECT_EQ(eCsStopped, state);
    EXPECT_EQ(kUntouched, status);
    EXPECT_EQ(0, ::ptrace(PTRACE_CONT, pid, nullptr, nullptr));
    EXPECT_EQ("1/3", endOf(pid));
}

void doNothing(int /*signal*/) {}

// After EINTR a caller can give up, or wait again.
TEST(KestrovaPstatusTest, InterruptedWaitIsToldAndTheChildStays) {
    int in = -1;
    const int pid = kestrova_popen3(&in, nullptr, nullptr, "read line; exit 2");
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = doNothing;
    ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &before));
    int status = kUntouched;
    std::promise<pthread_t> waiter;
    std::future<int> state = std::async(std::launch::async, [&] {
        waiter.set_value(::pthread_self());
        const int found = kestrova_pstatus(pid, status, true);
        EXPECT_EQ(EINTR, errno);
        return found;
    });
    const pthread_t thread = waiter.get_future().get();
    // Repeat the signal, because one that arrives before the wait is lost.
    while (state.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
        (void)::pthread_kill(thread, SIGUSR1);
    }
    EXPECT_EQ(eCsWaitFailed, state.get());
    EXPECT_EQ(kUntouched, status);
    EXPECT_EQ(0, ::sigaction(SIGUSR1, &before, nullptr));
    (void)::close(in);
    EXPECT_EQ("1/2", endOf(pid));
}

TEST(KestrovaPstatusTest, WaitThatFailsIsTold) {
    const failingcalls::Scope calls;
    for (const int error : {ECHILD, EINTR, EINVAL}) {
        failingcalls::fail(Call::eWaitpid, error);
        int status = kUntouched;
        EXPECT_EQ(eCsWaitFailed, kestrova_pstatus(1, status, true));
        EXPECT_EQ(kUntouched, status);
        EXPECT_EQ(error, errno);
    }
    EXPECT_EQ(3, failingcalls::count(Call::eWaitpid));
}

}  // namespace
