// SPDX-License-Identifier: MIT
#include "base/process/sigpipeguard.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "base/cancelguard.h"
#include "base/io/descriptor.h"
#include "tests/support/inchild.h"
#include "tests/support/sigpipe.h"

namespace {

using base::SigpipeGuard;
using tests::Findings;
using tests::inChild;
namespace sigpipe = tests::sigpipe;

/// Writes to a pipe without a reader. Returns whether it failed as expected.
bool writeToBrokenPipe() {
    base::Pipe pipe;
    if (!pipe.open()) {
        return false;
    }
    pipe.mRead.reset();
    errno = 0;
    return ::write(pipe.mWrite.get(), "x", 1) == -1 && errno == EPIPE;
}

volatile sig_atomic_t delivered = 0;

void count(int /*signal*/) {
    ++delivered;
}

// In separate processes, because without the guard the first write kills the process.
TEST(SigpipeGuardTest, WriteOnlyFails) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  {
                      const SigpipeGuard guard;
                      findings.expect(sigpipe::isBlocked(), "blocked inside");
                      findings.expect(writeToBrokenPipe(), "EPIPE");
                      findings.expect(writeToBrokenPipe(), "EPIPE again");
                  }
                  findings.expect(!sigpipe::isPending(), "taken back");
                  findings.expect(!sigpipe::isBlocked(), "mask as before");
                  return findings.text();
              }));
    EXPECT_EQ("signal " + std::to_string(SIGPIPE), inChild([] {
                  (void)::signal(SIGPIPE, SIG_DFL);
                  { const SigpipeGuard guard; }
                  (void)writeToBrokenPipe();
                  return "survived";
              }));
}

TEST(SigpipeGuardTest, HandlerOfTheApplicationIsNotCalled) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::signal(SIGPIPE, count);
                  {
                      const SigpipeGuard guard;
                      findings.expect(writeToBrokenPipe(), "EPIPE");
                  }
                  findings.expect(delivered == 0, "none delivered");
                  (void)writeToBrokenPipe();
                  findings.expect(delivered == 1, "handler still there");
                  return findings.text();
              }));
}

TEST(SigpipeGuardTest, OneThatWasPendingStaysPending) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  sigpipe::block();
                  (void)::raise(SIGPIPE);
                  {
                      const SigpipeGuard guard;
                      findings.expect(writeToBrokenPipe(), "EPIPE");
                  }
                  findings.expect(sigpipe::isPending(), "still pending");
                  findings.expect(sigpipe::isBlocked(), "still blocked");
                  return findings.text();
              }));
}

TEST(SigpipeGuardTest, OnePendingForTheProcessStaysPendingToo) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  sigpipe::block();
                  (void)::kill(::getpid(), SIGPIPE);
                  {
                      const SigpipeGuard guard;
                      findings.expect(writeToBrokenPipe(), "EPIPE");
                  }
                  findings.expect(sigpipe::isPending(), "still pending");
                  return findings.text();
              }));
}

TEST(SigpipeGuardTest, ThreadThatBlocksItAlreadyGetsNothingPending) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  sigpipe::block();
                  {
                      const SigpipeGuard guard;
                      findings.expect(writeToBrokenPipe(), "EPIPE");
                  }
                  findings.expect(!sigpipe::isPending(), "taken back");
                  findings.expect(sigpipe::isBlocked(), "still blocked");
                  return findings.text();
              }));
}

TEST(SigpipeGuardTest, IgnoredSignalStaysIgnored) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_IGN);
                  {
                      const SigpipeGuard guard;
                      findings.expect(writeToBrokenPipe(), "EPIPE");
                  }
                  findings.expect(!sigpipe::isPending() && !sigpipe::isBlocked(), "as before");
                  findings.expect(writeToBrokenPipe(), "still ignored");
                  return findings.text();
              }));
}

TEST(SigpipeGuardTest, Nests) {
    EXPECT_EQ("", inChild([] {
                  Findings findings;
                  (void)::signal(SIGPIPE, SIG_DFL);
                  {
                      const SigpipeGuard outer;
                      findings.expect(writeToBrokenPipe(), "EPIPE");
                      {
                          const SigpipeGuard inner;
                          findings.expect(writeToBrokenPipe(), "EPIPE inside");
                      }
                      findings.expect(sigpipe::isBlocked(), "outer still holds");
                  }
                  findings.expect(!sigpipe::isPending() && !sigpipe::isBlocked(), "as before");
                  return findings.text();
              }));
}

TEST(SigpipeGuardTest, RestoresTheWholeMask) {
    sigset_t before;
    sigset_t after;
    std::memset(&before, 0, sizeof(before));
    std::memset(&after, 0, sizeof(after));
    ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, nullptr, &before));
    { const SigpipeGuard guard; }
    ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, nullptr, &after));
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
    }
}

TEST(SigpipeGuardTest, KeepsErrno) {
    EXPECT_EQ("", inChild([] {
                  (void)::signal(SIGPIPE, SIG_DFL);
                  {
                      const SigpipeGuard guard;
                      (void)writeToBrokenPipe();
                      errno = ENOTTY;
                  }
                  return errno == ENOTTY ? "" : "errno";
              }));
}

int cancelState() {
    int state = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    (void)pthread_setcancelstate(state, nullptr);
    return state;
}

TEST(CancelGuardTest, DisablesForAScopeAndNests) {
    EXPECT_EQ(PTHREAD_CANCEL_ENABLE, cancelState());
    {
        const base::CancelGuard outer;
        EXPECT_EQ(PTHREAD_CANCEL_DISABLE, cancelState());
        { const base::CancelGuard inner; }
        EXPECT_EQ(PTHREAD_CANCEL_DISABLE, cancelState());
    }
    EXPECT_EQ(PTHREAD_CANCEL_ENABLE, cancelState());
}

}  // namespace
