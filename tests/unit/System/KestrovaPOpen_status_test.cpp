// SPDX-License-Identifier: MIT
//
// How the state of a child is decoded: its signal without the core dump flag, and a stop.
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "System/KestrovaPOpen.h"
#include "tests/support/tempdir.h"

namespace {

/// A child that runs a function; killed and reaped at the end of the scope.
class Child {
public:
    explicit Child(const std::function<void()>& body) : mPid(::fork()) {
        if (mPid == 0) {
            body();
            ::_exit(0);
        }
    }
    ~Child() {
        (void)::kill(mPid, SIGKILL);
        (void)::waitpid(mPid, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    pid_t pid() const { return mPid; }

private:
    pid_t mPid;
};

void dumpCore() {
    const rlimit all = {RLIM_INFINITY, RLIM_INFINITY};
    (void)::setrlimit(RLIMIT_CORE, &all);
    (void)::signal(SIGQUIT, SIG_DFL);
    (void)::raise(SIGQUIT);
}

}  // namespace

TEST(KestrovaPstatus, TheMarkOfACoreDumpIsNoPartOfTheSignal) {
    const tests::TempDir folder;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path("."));
    int raw = 0;
    {
        const Child probe(dumpCore);
        (void)::waitpid(probe.pid(), &raw, 0);
    }
    int status = 99;
    const Child child(dumpCore);
    const int state = kestrova_pstatus(child.pid(), status, true);
    std::filesystem::current_path(before);
    if (!WCOREDUMP(raw)) {
        GTEST_SKIP() << "this machine dumps no core";
    }
    EXPECT_EQ(eCsKilled, state);
    EXPECT_EQ(SIGQUIT, status);
}

TEST(KestrovaPstatus, AStoppedChildIsStillRunning) {
    const Child child([] { (void)::raise(SIGSTOP); });
    siginfo_t seen = {};
    ASSERT_EQ(0, ::waitid(P_PID, static_cast<id_t>(child.pid()), &seen, WSTOPPED | WNOWAIT));
    int status = 99;
    EXPECT_EQ(eCsRunning, kestrova_pstatus(child.pid(), status, false));
    EXPECT_EQ(99, status);
}

TEST(KestrovaPstatus, EveryStopOfATracedChildIsAStop) {
    for (const int signal : {SIGSTOP, SIGTSTP, SIGTERM}) {
        const Child child([signal] {
            (void)::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            (void)::raise(signal);
        });
        int status = 99;
        EXPECT_EQ(eCsStopped, kestrova_pstatus(child.pid(), status, true)) << signal;
        EXPECT_EQ(99, status) << signal;
    }
}
