// SPDX-License-Identifier: MIT
//
// What a child does before execve(), and shell commands.
#include "base/process/childprocess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/process/shellcommand.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"
#include "tests/support/sandbox.h"
#include "tests/support/tempdir.h"
#include "tests/unit/base/childview.h"

namespace {

using failingcalls::Call;
using tests::Capture;
using tests::ChildView;
using tests::Findings;
using tests::inChild;
using tests::TempDir;

bool isNull(int descriptor) {
    struct stat status = {};
    struct stat null = {};
    return ::fstat(descriptor, &status) == 0 && ::stat("/dev/null", &null) == 0 &&
           status.st_rdev == null.st_rdev && S_ISCHR(status.st_mode);
}

void closeThose(int mask) {
    for (int number = 0; number < 3; ++number) {
        if ((mask & 1 << number) != 0) {
            (void)::close(number);
        }
    }
}

class StandardStreamsTest : public testing::TestWithParam<int> {};

TEST_P(StandardStreamsTest, MissingOnesBecomeTheNullDeviceAndOthersStay) {
    const TempDir directory;
    const std::string path = directory.write("file", "");
    EXPECT_EQ("", inChild([&path] {
                  Findings findings;
                  const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
                  for (int number = 0; number < 3; ++number) {
                      (void)::dup2(file, number);
                  }
                  closeThose(GetParam());
                  const int lowest = ::dup(file);
                  (void)::close(lowest);
                  base::fillStandardStreams();
                  for (int number = 0; number < 3; ++number) {
                      const bool closed = (GetParam() & 1 << number) != 0;
                      findings.expect(isNull(number) == closed, "what is on it");
                      findings.expect(::fcntl(number, F_GETFD) == 0, "open for the program");
                      findings.expect((::fcntl(number, F_GETFL) & O_ACCMODE) == O_RDWR, "mode");
                  }
                  const int next = ::dup(file);
                  findings.expect(next > 2 && (lowest < 3 || next == lowest), "nothing else");
                  return findings.text();
              }));
}

// Such a file is not inherited: the program would find the number closed.
TEST_P(StandardStreamsTest, OnesThatCloseOnExecAreReplacedToo) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  const int file = ::open("/proc/self/comm", O_RDWR | O_CLOEXEC);
                  for (int number = 0; number < 3; ++number) {
                      if ((GetParam() & 1 << number) != 0) {
                          (void)::dup3(file, number, O_CLOEXEC);
                      }
                  }
                  base::fillStandardStreams();
                  for (int number = 0; number < 3; ++number) {
                      findings.expect(::fcntl(number, F_GETFD) == 0, "open for the program");
                      findings.expect((GetParam() & 1 << number) == 0 || isNull(number), "null");
                  }
                  return findings.text();
              }));
}

// The shell's command finds the same, regardless of the caller's streams.
TEST_P(StandardStreamsTest, ShellCommandsHaveAllThree) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ("", inChild([&report] {
                  closeThose(GetParam());
                  const int status = base::runShell(KESTROVA_CHILDVIEW " " + report);
                  return status == 0 ? "" : "status";
              }));
    const ChildView view(report);
    EXPECT_EQ("0 1 2", view.numbers());
    for (int number = 0; number < 3; ++number) {
        if ((GetParam() & 1 << number) != 0) {
            EXPECT_EQ("/dev/null rw", view.on(number));
        }
    }
}

TEST_P(StandardStreamsTest, ShellCommandsHaveAllThreeWhereOthersTookTheNumbers) {
    const TempDir directory;
    const std::string report = directory.path("report");
    EXPECT_EQ("", inChild([&report] {
                  const int file = ::open("/proc/self/comm", O_RDWR | O_CLOEXEC);
                  for (int number = 0; number < 3; ++number) {
                      if ((GetParam() & 1 << number) != 0) {
                          (void)::dup3(file, number, O_CLOEXEC);
                      }
                  }
                  const int status = base::runShell(KESTROVA_CHILDVIEW " " + report);
                  return status == 0 ? "" : "status";
              }));
    EXPECT_EQ("0 1 2", ChildView(report).numbers());
}

INSTANTIATE_TEST_SUITE_P(Combinations, StandardStreamsTest, testing::Range(0, 8));

TEST(CloseDescriptorsTest, AlsoOnAKernelWithoutTheCallForIt) {
    for (const bool kernelHasIt : {true, false}) {
        EXPECT_EQ("", inChild([kernelHasIt] {
                      constexpr int first = 700;
                      Findings findings;
                      for (const int number : {first - 1, first, first + 20}) {
                          findings.expect(::dup2(STDIN_FILENO, number) == number, "made");
                      }
                      if (!kernelHasIt) {
                          failingcalls::failAll(Call::eCloseRange, ENOSYS);
                      }
                      base::closeDescriptorsFrom(first);
                      findings.expect(::fcntl(first - 1, F_GETFD) == 0, "the one below stays");
                      for (const int number : {first, first + 20}) {
                          findings.expect(::fcntl(number, F_GETFD) == -1, "closed");
                      }
                      return findings.text();
                  }))
            << kernelHasIt;
    }
}

/// Returns what a detached child finds in its environment.
std::string detached() {
    Findings findings;
    const pid_t first = ::getpid();
    findings.expect(base::detachChild(), "detached");
    findings.expect(::getpid() != first && ::getsid(0) == ::getpid(), "leads a session");
    char directory[8] = {};
    findings.expect(::getcwd(directory, sizeof(directory)) != nullptr, "has a directory");
    findings.expect(std::string(directory) == "/", "in the root");
    for (int number = 0; number < 3; ++number) {
        findings.expect(isNull(number), "null device");
    }
    return findings.text();
}

TEST(DetachChildTest, LeadsASessionInTheRootWithNullStreams) {
    EXPECT_EQ("", inChild(detached));
}

TEST(DetachChildTest, NeedsTheNullDeviceAsItsStreams) {
    for (const Call call : {Call::eOpen, Call::eDup2}) {
        EXPECT_EQ("refused", inChild([call] {
                      failingcalls::failAll(call, EMFILE);
                      return std::string(base::detachChild() ? "detached" : "refused");
                  }));
    }
}

// A box whose /dev/null is a file, or another device.
TEST(DetachChildTest, TakesNothingElseForTheNullDevice) {
    for (const char* const stranger : {"/dev/file", "/dev/zero"}) {
        tests::inSandbox([stranger](tests::Sandbox&) {
            tests::writeFile("/dev/file", "");
            EXPECT_EQ(0, ::mount(stranger, "/dev/null", nullptr, MS_BIND, nullptr));
            EXPECT_EQ("refused", inChild([] {
                          return std::string(base::detachChild() ? "detached" : "refused");
                      }));
        });
    }
}

TEST(ShellTest, GivesTheRawStatus) {
    const Capture capture;
    EXPECT_EQ(0, base::runShell("true"));
    const int exited = base::runShell("exit 3");
    EXPECT_EQ(3, WEXITSTATUS(exited));
    const int absent = base::runShell("/nowhere/at/all");
    EXPECT_EQ(127, WEXITSTATUS(absent));
    const int killed = base::runShell("kill -9 $$");
    EXPECT_TRUE(WIFSIGNALED(killed));
    EXPECT_EQ(0, base::runShell("echo to the output"));
    EXPECT_EQ("to the output\n", capture.output());
}

TEST(ShellTest, TellsWhenThereCanBeNoShell) {
    const failingcalls::Scope calls;
    failingcalls::fail(failingcalls::Call::eSystem, EAGAIN);
    EXPECT_EQ(-1, base::runShell("true"));
    EXPECT_EQ(EAGAIN, errno);
}

TEST(ReportInChildTest, IsPerrorWithoutStdio) {
    for (const int error : {ENOENT, EACCES, E2BIG, ENOEXEC}) {
        const Capture capture;
        errno = error;
        base::reportInChild("Error spawning");
        const std::string ours = capture.errors();
        errno = error;
        ::perror("Error spawning");
        EXPECT_EQ(ours + ours, capture.errors());
    }
    const Capture capture;
    errno = 99999;
    base::reportInChild("odd");
    EXPECT_EQ("odd: Unknown error\n", capture.errors());
}

// A socket preserves the boundaries of writes.
TEST(ReportInChildTest, IsOneWrite) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends));
    EXPECT_EQ("", inChild([&ends] {
                  (void)::dup2(ends[1], STDERR_FILENO);
                  errno = ENOENT;
                  base::reportInChild("Error spawning");
                  return std::string();
              }));
    char packet[100] = "";
    EXPECT_LT(0, ::recv(ends[0], packet, sizeof(packet) - 1, MSG_DONTWAIT));
    EXPECT_STREQ("Error spawning: No such file or directory\n", packet);
    EXPECT_EQ(-1, ::recv(ends[0], packet, sizeof(packet), MSG_DONTWAIT));
    (void)::close(ends[0]);
    (void)::close(ends[1]);
}

}  // namespace
