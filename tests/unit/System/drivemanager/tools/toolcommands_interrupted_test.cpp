// SPDX-License-Identifier: MIT
//
// A signal with a handler interrupts system calls of the caller while a tool runs.
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>

#include "System/drivemanager/partition.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using tests::Background;
using tests::inSandbox;
using tests::makePartition;
using tests::Role;
using tests::Sandbox;

namespace {

constexpr int kSignals = 20;

volatile std::sig_atomic_t handled = 0;

void handle(int /*signal*/) {
    handled = handled + 1;
}

void interruptSystemCalls() {
    struct sigaction action = {};
    action.sa_handler = handle;  // without SA_RESTART
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
}

/// Interrupts the thread whenever it sleeps.
void interrupt(Background& thread) {
    for (int i = 0; i < kSignals; ++i) {
        ASSERT_TRUE(tests::eventually([&] { return thread.sleeps(); }));
        ASSERT_EQ(pthread_kill(thread.handle(), SIGUSR1), 0);
    }
}

void runInterrupted(Role role, const std::function<bool(sysPartition&)>& operation) {
    inSandbox([&](Sandbox& box) {
        interruptSystemCalls();
        sysPartition partition;
        makePartition(partition);
        // At the first hold the caller reads, at the second one it waits for the tool's exit.
        box.expect(role);
        Background background([&] { return operation(partition); });
        box.awaitHeld();
        interrupt(background);
        box.release();
        box.awaitHeld();
        interrupt(background);
        box.release();
        EXPECT_TRUE(background.result());
        EXPECT_GT(handled, 0);
    });
}

}  // namespace

TEST(Interrupted, Ext3FormatGoesOn) {
    runInterrupted(Role({"/sbin/mkfs.ext3", "-L", "x", "-m", "0", "-i", "2097152", "/dev/sda1"})
                       .print("Writing")
                       .hold()
                       .print(" inode tables:\n1/2\n")
                       .close(1)
                       .hold(),
                   [](sysPartition& partition) {
                       return partition.ext3_format("x") &&
                              partition.ext3_format_progress() == 100000;
                   });
}

TEST(Interrupted, XfsFormatGoesOn) {
    runInterrupted(Role({"/sbin/mkfs.xfs", "-L", "x", "-f", "-l", "lazy-count=0", "/dev/sda1"})
                       .print("he")
                       .hold()
                       .print("llo")
                       .close(1)
                       .hold(),
                   [](sysPartition& partition) {
                       const tests::Capture capture;
                       return partition.xfs_format("x") && capture.output() == "hello\xff";
                   });
}

TEST(Interrupted, Ext3CheckGoesOn) {
    inSandbox([](Sandbox& box) {
        interruptSystemCalls();
        sysPartition partition;
        makePartition(partition);
        const int writeEnd = tests::nextDescriptor() + 1;
        box.expect(Role({"/sbin/fsck.ext3", "-C", std::to_string(writeEnd), "-p", "/dev/sda1"})
                       .report("3 50")
                       .hold()
                       .report(" 100 /dev/sda1\n")
                       .hold()
                       .close(writeEnd)
                       .close(writeEnd - 1)
                       .hold());
        Background check([&] { return partition.ext3_fscheck(); });
        box.awaitHeld();
        interrupt(check);
        EXPECT_EQ(partition.ext3_fscheck_progress(), 0);
        box.release();
        box.awaitHeld();
        interrupt(check);
        EXPECT_EQ(partition.ext3_fscheck_progress(), 50000);
        box.release();
        box.awaitHeld();
        interrupt(check);
        box.release();
        EXPECT_TRUE(check.result());
        EXPECT_GT(handled, 0);
    });
}
