// SPDX-License-Identifier: MIT
//
// What a command inherits: the same as after plain fork and exec, and nothing else. Started by one
// thread and by many.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "System/KestrovaPOpen.h"
#include "base/process/popen3.h"
#include "base/process/shellcommand.h"
#include "tests/support/descriptors.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"
#include "tests/unit/base/childview.h"

namespace {

using tests::ChildView;
using tests::Findings;
using tests::inChild;
using tests::openDescriptors;
using tests::readToEnd;
using tests::TempDir;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kSpawns = 800;
#else
constexpr int kSpawns = 10000;
#endif
constexpr int kThreads = 8;

/// Returns the blocked and ignored signals of the program that wrote the report.
std::string signalsIn(const std::string& report) {
    const ChildView view(report);
    return view.only("SigBlk:") + " " + view.only("SigIgn:");
}

void block(int number) {
    sigset_t set;
    (void)::sigemptyset(&set);
    (void)::sigaddset(&set, number);
    (void)::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

std::string signalsAfterForkAndExec(const std::string& report) {
    const pid_t child = ::fork();
    if (child == 0) {
        const char* const arguments[] = {KESTROVA_CHILDVIEW, report.c_str(), nullptr};
        (void)::execv(arguments[0], const_cast<char* const*>(arguments));
        ::_exit(127);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0 ? signalsIn(report) : "no report";
}

std::string signalsAfterPopen3(const std::string& report) {
    const std::string command = "exec " KESTROVA_CHILDVIEW " " + report;
    const int child = kestrova_popen3(nullptr, nullptr, nullptr, command.c_str());
    int status = -1;
    const int state = kestrova_pstatus(child, status, true);
    return state == eCsExited && status == 0 ? signalsIn(report) : "no report";
}

TEST(KestrovaPopenInheritanceTest, MaskAndDispositionsAreThoseOfTheCallingThread) {
    const TempDir directory;
    const std::string report = directory.path("report");
    const std::string plain = inChild([&] { return signalsAfterForkAndExec(report); });
    const auto change = [] {
        block(SIGUSR1);
        block(SIGINT);
        (void)::signal(SIGUSR2, SIG_IGN);
        (void)::signal(SIGPIPE, SIG_IGN);
        (void)::signal(SIGHUP, [](int) {});
    };
    const std::string expected = inChild([&] {
        change();
        return signalsAfterForkAndExec(report);
    });
    EXPECT_NE(plain, expected);
    EXPECT_EQ(expected, inChild([&] {
                  change();
                  return signalsAfterPopen3(report);
              }));
    EXPECT_EQ(plain, inChild([&] { return signalsAfterPopen3(report); }));
}

bool ignoresInterrupts() {
    struct sigaction action = {};
    return ::sigaction(SIGINT, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void noHook(void* /*argument*/) {}

/// Like signalsAfterPopen3(), with a hook.
std::string signalsAfterHook(const std::string& report) {
    const char* arguments[] = {KESTROVA_CHILDVIEW, report.c_str(), nullptr};
    int status = -1;
    const int child = kestrova_popen3_adv(nullptr, nullptr, nullptr, arguments, nullptr, nullptr,
                                          noHook, nullptr);
    const int state = kestrova_pstatus(child, status, true);
    return state == eCsExited && status == 0 ? signalsIn(report) : "no report";
}

// While the library itself runs a shell command, the whole process ignores Ctrl-C.
TEST(KestrovaPopenInheritanceTest, NothingThatTheLibraryChangesForItselfLeaks) {
    const TempDir directory;
    const std::string report = directory.path("report");
    const std::string fifo = directory.path("fifo");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    for (const bool ignoredAnyway : {false, true}) {
        const auto change = [ignoredAnyway] {
            (void)::signal(SIGINT, ignoredAnyway ? SIG_IGN : SIG_DFL);
            (void)::signal(SIGQUIT, ignoredAnyway ? SIG_DFL : SIG_IGN);
        };
        const std::string expected = inChild([&] {
            change();
            return signalsAfterForkAndExec(report);
        });
        EXPECT_EQ("", inChild([&] {
                      Findings findings;
                      change();
                      std::thread shell([&fifo] { (void)base::runShell("read line <" + fifo); });
                      // Returns when the command has opened the fifo.
                      const int release = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
                      findings.expect(ignoresInterrupts(), "a process that ignores");
                      findings.expect(signalsAfterPopen3(report) == expected, "directly");
                      findings.expect(signalsAfterHook(report) == expected, "with a hook");
                      (void)::close(release);
                      shell.join();
                      findings.expect(signalsAfterPopen3(report) == expected, "afterwards");
                      return findings.text();
                  }));
    }
}

class KestrovaPopenClosedStreamsTest : public testing::TestWithParam<int> {};

TEST_P(KestrovaPopenClosedStreamsTest, PipesAreRightAllTheSame) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  for (int number = 0; number < 3; ++number) {
                      if ((GetParam() & 1 << number) != 0) {
                          (void)::close(number);
                      }
                  }
                  const std::set<int> before = openDescriptors();
                  int in = -1;
                  int out = -1;
                  int err = -1;
                  const int child = kestrova_popen3(&in, &out, &err, "cat; echo err >&2");
                  findings.expect(child > 0 && in > 2 && out > 2 && err > 2, "above 2");
                  findings.expect(::write(in, "text", 4) == 4 && ::close(in) == 0, "input");
                  findings.expect(readToEnd(out) == "text", "output");
                  findings.expect(readToEnd(err) == "err\n", "errors");
                  int status = -1;
                  findings.expect(kestrova_pstatus(child, status, true) == eCsExited, "end");
                  findings.expect(status == 0 && openDescriptors() == before, "as before");
                  return findings.text();
              }));
}

INSTANTIATE_TEST_SUITE_P(Combinations, KestrovaPopenClosedStreamsTest, testing::Range(0, 8));

// Only shell builtins. The shell opens the directory as descriptor 3 to list it.
constexpr char kCommand[] = "echo /proc/self/fd/*; read line; echo \"$line\" >&2; exit 7";
constexpr char kOnlyStreams[] = "/proc/self/fd/0 /proc/self/fd/1 /proc/self/fd/2 /proc/self/fd/3\n";

/// Runs one command with three pipes. Returns a problem, or "".
std::string spawnOnce(int number) {
    int in = -1;
    int out = -1;
    int err = -1;
    const int child = kestrova_popen3(&in, &out, &err, kCommand);
    if (child <= 0) {
        return "no child";
    }
    const std::string line = std::to_string(number) + "\n";
    Findings findings;
    findings.expect(::write(in, line.data(), line.size()) > 0, "input");
    (void)::close(in);
    const std::string seen = readToEnd(out);
    findings.expect(seen == kOnlyStreams, seen.c_str());
    findings.expect(readToEnd(err) == line, "errors");
    int status = -1;
    findings.expect(kestrova_pstatus(child, status, true) == eCsExited && status == 7, "end");
    return findings.text();
}

TEST(KestrovaPopenThreadsTest, NothingLeaksAndNoChildHoldsAnothersPipes) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer takes the descriptors of a child in the caller's memory "
                    "for the caller's own";
#endif
    const std::set<int> before = openDescriptors();
    std::vector<std::thread> threads;
    std::string problems[kThreads];
    for (std::string& problem : problems) {
        threads.emplace_back([&problem] {
            for (int i = 0; i < kSpawns / kThreads && problem.empty(); ++i) {
                problem = spawnOnce(i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& problem : problems) {
        EXPECT_EQ("", problem);
    }
    EXPECT_EQ(before, openDescriptors());
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

}  // namespace
