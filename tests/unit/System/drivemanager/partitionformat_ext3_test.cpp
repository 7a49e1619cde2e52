// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <mutex>

#include "System/drivemanager/partition.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::Background;
using tests::inSandbox;
using tests::makePartition;
using tests::Outcome;
using tests::outcomeOf;
using tests::Role;
using tests::Sandbox;

namespace {

Role maker(const std::string& label) {
    return Role({"/sbin/mkfs.ext3", "-L", label, "-m", "0", "-i", "2097152", "/dev/sda1"});
}

/// The values of the progress, each seen while the tool is stopped.
class Watch {
public:
    explicit Watch(const sysPartition& partition) : mPartition(partition) {}
    /// Also called from the formatting thread, just before a call.
    void note() {
        const std::lock_guard<std::mutex> lock(mLock);
        const int value = mPartition.ext3_format_progress();
        if (mValues.empty() || mValues.back() != value) {
            mValues.push_back(value);
        }
    }
    void until(int value) {
        EXPECT_TRUE(tests::eventually([&] {
            note();
            return mPartition.ext3_format_progress() == value;
        })) << value;
    }
    /// Valid after the operation.
    const std::vector<int>& values() const { return mValues; }

private:
    const sysPartition& mPartition;
    std::mutex mLock;
    std::vector<int> mValues;
};

}  // namespace

TEST(Ext3Format, RunsTheToolAsItMust) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(maker("software").print("mke2fs\n"));
        EXPECT_TRUE(partition.ext3_format("software"));
        tests::expectFormatterRun(box.runs().at(0));
    });
}

TEST(Ext3Format, GivesTheLabelAsOneArgument) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        for (const std::string label : {"", "two words", "$(reboot);'\"", "-f"}) {
            box.expect(maker(label));
            EXPECT_TRUE(partition.ext3_format(label.c_str()));
        }
        const std::string longLabel(5000, 'l');
        box.expect(maker(longLabel));
        EXPECT_TRUE(partition.ext3_format(longLabel.c_str()));
    });
}

TEST(Ext3Format, ProgressFollowsEveryStage) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(maker("x")
                       .hold()
                       .print("mke2fs 1.47\n\nWriting inode tables: ")
                       .hold()
                       .print(" 0/320\b\b\b\b\b\b")
                       .hold()
                       .print("160/320\b\b\b\b\b\b\b")
                       .hold()
                       .print("5/0\b320/320\b")
                       .hold()
                       .print("done\n")
                       .hold()
                       .print("Creating journal: 1/2\n"));
        const failingcalls::Scope scope;
        Watch watch(partition);
        failingcalls::before(Call::ePipe2, [&] { watch.note(); });
        failingcalls::before(Call::eFork, [&] { watch.note(); });
        failingcalls::before(Call::eFdopen, [&] { watch.note(); });
        failingcalls::before(Call::eWaitpid, [&] { watch.note(); });
        Background format([&] { return partition.ext3_format("x"); });
        // Text that is printed before a hold has no end yet, and takes effect with the next
        // backspace.
        const int expected[] = {10000, 10000, 20000, 45000, 70000, 70000};
        for (const int value : expected) {
            box.awaitHeld();
            watch.until(value);
            box.release();
        }
        EXPECT_TRUE(format.result());
        watch.note();
        EXPECT_EQ(watch.values(), (std::vector<int>{0, 10000, 20000, 45000, 70000, 90000, 100000}));
    });
}

TEST(Ext3Format, ASecondRunBeginsAtZero) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.allow(maker("x").print("Writing inode tables:\n1/2\n"));
        EXPECT_TRUE(partition.ext3_format("x"));
        EXPECT_EQ(partition.ext3_format_progress(), 100000);
        const failingcalls::Scope scope;
        int first = -1;
        failingcalls::before(Call::ePipe2, [&] { first = partition.ext3_format_progress(); });
        EXPECT_TRUE(partition.ext3_format("x"));
        EXPECT_EQ(first, 0);
    });
}

TEST(Ext3Format, FailsWhenTheToolFails) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(maker("x").print("Writing inode tables:\n").exit(1));
        EXPECT_FALSE(partition.ext3_format("x"));
        EXPECT_EQ(partition.ext3_format_progress(), 100000);
        for (const int signal : {SIGKILL, SIGTERM}) {
            box.expect(maker("x").die(signal));
            EXPECT_FALSE(partition.ext3_format("x"));
            EXPECT_EQ(partition.ext3_format_progress(), 100000);
        }
    });
}

TEST(Ext3Format, AMissingToolReportsFromTheChild) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const failingcalls::Scope scope;
        siginfo_t end = {};
        failingcalls::before(Call::eWaitpid, [&] { end = tests::endOfChild(); });
        box.removeTool("/sbin/mkfs.ext3");
        Outcome outcome = outcomeOf([&] { return partition.ext3_format("x"); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "");
        EXPECT_EQ(outcome.mErrors, "Error spawning mkfs.ext3: No such file or directory\n");
        EXPECT_EQ(end.si_code, CLD_EXITED);
        EXPECT_EQ(end.si_status, 255);
        EXPECT_EQ(partition.ext3_format_progress(), 100000);

        tests::writeFile("/sbin/mkfs.ext3", "");
        outcome = outcomeOf([&] { return partition.ext3_format("x"); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mErrors, "Error spawning mkfs.ext3: Permission denied\n");
    });
}

TEST(Ext3Format, AToolThatClosesItsOutputEarlyIsWaitedFor) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(maker("x").close(1).hold());
        Background format([&] { return partition.ext3_format("x"); });
        box.awaitHeld();
        EXPECT_TRUE(tests::eventually([&] { return partition.ext3_format_progress() == 90000; }));
        box.release();
        EXPECT_TRUE(format.result());
        EXPECT_EQ(partition.ext3_format_progress(), 100000);
    });
}

TEST(Ext3Format, TakesOutputOfAnySize) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(maker("x")
                       .print(std::string(300000, 'y') +
                              "\nWriting inode tables:" + std::string(300000, 'z') + "\n1/2\n")
                       .hold());
        Background format([&] { return partition.ext3_format("x"); });
        box.awaitHeld();
        EXPECT_TRUE(tests::eventually([&] { return partition.ext3_format_progress() == 45000; }));
        box.release();
        EXPECT_TRUE(format.result());
    });
}
