// SPDX-License-Identifier: MIT
//
// The print lock: who holds it, and that it is always released.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/log/log.h"
#include "tests/support/capture.h"
#include "tests/support/outputlevel.h"

namespace {

/// Only for the calling thread.
thread_local int locksTaken = 0;
thread_local bool lockFails = false;
thread_local bool nameFails = false;

}  // namespace

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (lockFails) {
        return EINVAL;
    }
    ++locksTaken;
    return __real_pthread_mutex_lock(mutex);
}

int __real_pthread_getname_np(pthread_t thread, char* name, std::size_t size);
int __wrap_pthread_getname_np(pthread_t thread, char* name, std::size_t size) {
    return nameFails ? ERANGE : __real_pthread_getname_np(thread, name, size);
}
}

namespace {

using tests::Capture;
using tests::OutputLevel;

/// Returns whether another thread can take the lock, which it then releases.
bool lockIsFree() {
    int token = 0;
    std::thread other([&token] {
        token = getprintaccess();
        if (token != 0) {
            releaseprintaccess();
        }
    });
    other.join();
    return token != 0;
}

TEST(PrintLockTest, TokenIsNonZeroForTheOneWhoTookIt) {
    const int token = getprintaccess();
    EXPECT_NE(0, token);
    releaseprintaccess();
    EXPECT_TRUE(lockIsFree());
}

TEST(PrintLockTest, NestedCallGetsZeroAndDoesNotRelease) {
    ASSERT_NE(0, getprintaccess());
    EXPECT_EQ(0, getprintaccess());
    EXPECT_EQ(0, getprintaccess());
    {
        const base::PrintAccess nested;
        const base::PrintAccess nestedAgain;
    }
    // Still held: a release inside would have made this non-zero.
    EXPECT_EQ(0, getprintaccess());
    releaseprintaccess();
    const int token = getprintaccess();
    EXPECT_NE(0, token);
    releaseprintaccess();
}

TEST(PrintLockTest, MessagesInsideAHeldLockLeaveItHeld) {
    const OutputLevel level(2);
    const Capture capture;
    ASSERT_NE(0, getprintaccess());
    base::logMessage(1, "a\n");
    base::logBytes(1, "a", 1);
    base::logMessageAt("s", 1, 1, "b\n");
    base::logNameAt("s", 1, 1, "c", "d");
    base::reportFailedAssertion("s", 1, "e");
    base::reportFailedAttention("s", 1, "f");
    base::reportFailedAssertionWithValues("s", 1, "g", " h=", 1);
    EXPECT_EQ(0, getprintaccess());
    releaseprintaccess();
    EXPECT_TRUE(lockIsFree());
}

/// Runs a report at verbosity 0. Returns how often it took a lock.
template <class Report>
int locksOfSuppressed(Report report) {
    const OutputLevel level(0);
    const Capture capture;
    const int before = locksTaken;
    report();
    const int taken = locksTaken - before;
    EXPECT_EQ("", capture.output());
    EXPECT_TRUE(lockIsFree());
    return taken;
}

TEST(PrintLockTest, IsTakenAndReleasedWhenNothingIsPrinted) {
    EXPECT_EQ(1, locksOfSuppressed([] { base::logMessage(1, "x\n"); }));
    EXPECT_EQ(1, locksOfSuppressed([] { base::logBytes(1, "x", 1); }));
    EXPECT_EQ(1, locksOfSuppressed([] { base::logMessageAt("s", 1, 1, "x\n"); }));
    EXPECT_EQ(1, locksOfSuppressed([] { base::logNameAt("s", 1, 1, "x", "y"); }));
    EXPECT_EQ(1, locksOfSuppressed([] { base::reportFailedAssertion("s", 1, "x"); }));
    EXPECT_EQ(1, locksOfSuppressed([] { base::reportFailedAttention("s", 1, "x"); }));
    EXPECT_EQ(
        1, locksOfSuppressed([] { base::reportFailedAssertionWithValues("s", 1, "x", " y=", 1); }));
}

TEST(PrintLockTest, TokenIsZeroWhenItCannotBeTakenAndTheMessageComesOut) {
    lockFails = true;
    const int token = getprintaccess();
    int cancelState = PTHREAD_CANCEL_DISABLE;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancelState);
    lockFails = false;
    EXPECT_EQ(0, token);
    EXPECT_EQ(PTHREAD_CANCEL_ENABLE, cancelState);
    const Capture capture;
    lockFails = true;
    base::logMessage(1, "in spite of it\n");
    lockFails = false;
    EXPECT_EQ("in spite of it\n", capture.output());
    EXPECT_TRUE(lockIsFree());
}

TEST(PrintLockTest, ThreadWithoutANameIsUnknown) {
    nameFails = true;
    const std::string name = KestrovaThreadThisName();
    nameFails = false;
    EXPECT_EQ("unknown", name);
}

/// Every message of a writer has two lines; both start with its kind, its writer and its number.
void writeMessages(int writer, int rounds) {
    const std::string task = "w" + std::to_string(writer);
    (void)pthread_setname_np(pthread_self(), task.c_str());
    for (int round = 0; round < rounds; ++round) {
        const std::string source = std::to_string(writer) + "-" + std::to_string(round);
        base::logMessageAt(("A-" + source).c_str(), 1, 1, "A-%s:two\n", source.c_str());
        base::logNameAt(("B-" + source).c_str(), 1, 1, "B-", source + ":two");
        base::reportFailedAssertionWithValues(("C-" + source).c_str(), 1, "c", "C-", writer, "-",
                                              round, ":two");
        const base::PrintAccess access;
        kestrova_print_context_file_line(("D-" + source).c_str(), 1, 1, 0, "", "", "");
        *pCoutKestrovaOstream << "D"
                              << "-" << writer << "-" << round << ":";
        base::logMessage(1, "%s\n", "two");
    }
}

// All pieces of one message are printed before any of another.
TEST(PrintLockTest, MessagesOfManyThreadsDoNotInterleave) {
    constexpr int writers = 8;
    constexpr int rounds = 150;
    const Capture capture;
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back(writeMessages, writer, rounds);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream lines(capture.output());
    std::map<std::pair<char, int>, int> next;
    std::string first;
    std::string second;
    int messages = 0;
    while (std::getline(lines, first) && std::getline(lines, second)) {
        ++messages;
        const std::string head = first.substr(0, first.find(':'));
        ASSERT_EQ(head + ":two", second) << first;
        char kind = 0;
        int writer = 0;
        int round = 0;
        ASSERT_EQ(3, std::sscanf(head.c_str(), "%c-%d-%d", &kind, &writer, &round)) << first;
        const std::string rest =
            kind == 'C' ? ":1 Assertion `c' failed (calling task: w" + std::to_string(writer) + ")."
                        : ":1 (level 1):";
        ASSERT_EQ(head + rest, first);
        ASSERT_EQ(round, (next[{kind, writer}])++);
    }
    EXPECT_EQ(writers * rounds * 4, messages);
}

}  // namespace
