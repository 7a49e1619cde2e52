// SPDX-License-Identifier: MIT
//
// Standard output: no buffering, no loss.
#include "base/log/console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <future>
#include <string>

#include "base/log/log.h"
#include "base/stream.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/inchild.h"

namespace {

using failingcalls::Call;
using tests::Capture;
using tests::Findings;
using tests::inChild;

/// A text in which every position is recognisable.
std::string patternOf(std::size_t length) {
    std::string text(length, ' ');
    for (std::size_t i = 0; i < length; ++i) {
        text[i] = static_cast<char>('a' + i % 23);
    }
    return text;
}

TEST(ConsoleTest, EveryPieceIsOutAtOnce) {
    const Capture capture;
    *pCoutKestrovaOstream << "a";
    EXPECT_EQ("a", capture.output());
    *pCoutKestrovaOstream << 1;
    EXPECT_EQ("a1", capture.output());
    base::writeConsole("b", 1);
    EXPECT_EQ("a1b", capture.output());
}

TEST(ConsoleTest, ConsoleStreamFlushesAfterEveryPiece) {
    EXPECT_NE(0U, pCoutKestrovaOstream->formatFlags() & KestrovaOstream::eFlagFlushEach);
    EXPECT_EQ(10, pCoutKestrovaOstream->base());
}

TEST(ConsoleTest, MessageLeavesInOneWrite) {
    const Capture capture;
    const failingcalls::Scope calls;
    base::logMessage(1, "%s\n", patternOf(100000).c_str());
    EXPECT_EQ(1, failingcalls::count(Call::eWrite));
}

// Around the size that is kept on the stack, and far beyond it.
TEST(ConsoleTest, MessageOfAnyLengthComesOutWhole) {
    for (const std::size_t length : {1U, 510U, 511U, 512U, 513U, 1023U, 1024U, 4096U, 1048576U}) {
        const std::string text = patternOf(length);
        const Capture capture;
        base::logMessage(1, "%s", text.c_str());
        EXPECT_EQ(text, capture.output()) << length;
    }
}

TEST(ConsoleTest, PrefixesOfAnyLengthComeOutWhole) {
    for (const std::size_t length : {511U, 512U, 5000U}) {
        const std::string prefix = patternOf(length);
        const std::string text = patternOf(700);
        const Capture capture;
        const base::PrintAccess access;
        kestrova_print_with_level(1, prefix.c_str(), "-", "", "%s", text.c_str());
        EXPECT_EQ(prefix + "-" + text, capture.output()) << length;
    }
}

TEST(ConsoleTest, GoesOnAfterAnInterruption) {
    const Capture capture;
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eWrite, EINTR);
    base::writeConsole("whole", 5);
    EXPECT_EQ("whole", capture.output());
    EXPECT_EQ(2, failingcalls::count(Call::eWrite));
}

TEST(ConsoleTest, GivesUpOnAnErrorAndKeepsErrno) {
    const Capture capture;
    const failingcalls::Scope calls;
    failingcalls::fail(Call::eWrite, EIO);
    errno = ENOTTY;
    base::writeConsole("lost", 4);
    EXPECT_EQ(ENOTTY, errno);
    base::writeConsole("next", 4);
    EXPECT_EQ("next", capture.output());
}

/// Makes descriptor 1 of the calling child the writing end of a pipe. Returns the reading end.
int outputIntoPipe(int flags) {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, flags) != 0 || ::dup2(ends[1], STDOUT_FILENO) < 0) {
        ::_exit(9);
    }
    (void)::close(ends[1]);
    return ends[0];
}

std::string readToEnd(int descriptor) {
    (void)::fcntl(descriptor, F_SETFL, 0);
    std::string text;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryCanBeLimited = false;
#else
constexpr bool kMemoryCanBeLimited = true;
#endif

TEST(ConsoleTest, BeginningOfALongMessageComesOutWithoutMemory) {
    if (!kMemoryCanBeLimited) {
        GTEST_SKIP() << "a sanitizer's memory cannot be limited";
    }
    const std::string text = patternOf(64 * 1048576);
    const Capture capture;
    EXPECT_EQ("", inChild([&text] {
                  const rlimit none = {4096, 4096};
                  if (::setrlimit(RLIMIT_AS, &none) != 0) {
                      return "no limit";
                  }
                  errno = ENOTTY;
                  base::logMessage(1, "%s", text.c_str());
                  return errno == ENOTTY ? "" : "errno";
              }));
    EXPECT_EQ(text.substr(0, 511), capture.output());
}

// A terminal or a log collector may have made the output non-blocking.
TEST(ConsoleTest, WaitsWhileANonBlockingOutputIsFull) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  const std::string text = patternOf(1048576);
                  const int readEnd = outputIntoPipe(O_NONBLOCK);
                  while (::write(STDOUT_FILENO, "f", 1) == 1) {
                  }
                  findings.expect(errno == EAGAIN, "pipe is full");
                  auto reader =
                      std::async(std::launch::async, [readEnd] { return readToEnd(readEnd); });
                  errno = ENOTTY;
                  base::logMessage(1, "%s", text.c_str());
                  findings.expect(errno == ENOTTY, "errno");
                  (void)::close(STDOUT_FILENO);
                  const std::string received = reader.get();
                  const std::size_t filled = received.find_first_not_of('f');
                  findings.expect(filled != std::string::npos &&
                                      received.compare(filled, std::string::npos, text) == 0,
                                  "message is whole");
                  return findings.text();
              }));
}

void ignoreSignal(int /*signal*/) {}

TEST(ConsoleTest, GoesOnWhenASignalCutsALongWriteShort) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  struct sigaction action = {};
                  action.sa_handler = ignoreSignal;
                  (void)::sigaction(SIGUSR1, &action, nullptr);
                  const int readEnd = outputIntoPipe(0);
                  const pthread_t writer = pthread_self();
                  auto reader = std::async(std::launch::async, [readEnd, writer] {
                      std::string text;
                      char buffer[100000];
                      ssize_t count = 0;
                      while ((count = ::read(readEnd, buffer, sizeof(buffer))) > 0) {
                          text.append(buffer, static_cast<std::size_t>(count));
                          (void)pthread_kill(writer, SIGUSR1);
                      }
                      return text;
                  });
                  const std::string text = patternOf(1048576);
                  base::logMessage(1, "%s", text.c_str());
                  (void)::close(STDOUT_FILENO);
                  findings.expect(reader.get() == text, "message is whole");
                  return findings.text();
              }));
}

TEST(ConsoleTest, ReaderThatIsGoneIsNotWaitedFor) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_IGN);
                  (void)::close(outputIntoPipe(O_NONBLOCK));
                  errno = ENOTTY;
                  base::logMessage(1, "%s", patternOf(200000).c_str());
                  *pCoutKestrovaOstream << "piece";
                  findings.expect(errno == ENOTTY, "errno");
                  return findings.text();
              }));
}

TEST(ConsoleTest, FullDeviceAndClosedOutputAreSurvived) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  const int full = ::open("/dev/full", O_WRONLY);
                  (void)::dup2(full, STDOUT_FILENO);
                  errno = ENOTTY;
                  base::logMessage(1, "lost\n");
                  (void)::close(STDOUT_FILENO);
                  base::logMessage(1, "lost\n");
                  findings.expect(errno == ENOTTY, "errno");
                  return findings.text();
              }));
}

}  // namespace
