// SPDX-License-Identifier: MIT
//
// Every call for starting a tool and reading from it fails once, for each operation.
#include <gtest/gtest.h>

#include <cerrno>

#include "System/drivemanager/harddrive.h"
#include "System/drivemanager/partition.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::inSandbox;
using tests::makePartition;
using tests::Outcome;
using tests::outcomeOf;
using tests::Role;
using tests::Sandbox;

namespace {

struct Operation {
    const char* mName;
    bool (*mRun)(sysPartition&);
    int (*mProgress)(const sysPartition&);
    int mStream;  ///< which of its streams is the tool's
};

int noProgress(const sysPartition& /*partition*/) {
    return 0;
}

const Operation kOperations[] = {
    {"ext3_format", [](sysPartition& partition) { return partition.ext3_format("x"); },
     [](const sysPartition& partition) { return partition.ext3_format_progress(); }, 1},
    {"xfs_format", [](sysPartition& partition) { return partition.xfs_format("x"); }, noProgress,
     1},
    {"ext3_fscheck", [](sysPartition& partition) { return partition.ext3_fscheck(); },
     [](const sysPartition& partition) { return partition.ext3_fscheck_progress(); },
     2},  // the mount table comes first
};

/// Tools that write more than a pipe holds: they exit only if their output is read.
void allowTools(Sandbox& box) {
    const std::string output(200000, 'x');
    const std::string number = std::to_string(tests::nextDescriptor() + 1);
    box.allow(Role({"/sbin/mkfs.ext3", "-L", "x", "-m", "0", "-i", "2097152", "/dev/sda1"})
                  .print(output));
    box.allow(
        Role({"/sbin/mkfs.xfs", "-L", "x", "-f", "-l", "lazy-count=0", "/dev/sda1"}).print(output));
    box.allow(Role({"/sbin/fsck.ext3", "-C", number, "-p", "/dev/sda1"}).report(output));
}

/// Runs each operation with one call failing and checks the result.
void failEach(Call call, int error, int progress) {
    inSandbox([&](Sandbox& box) {
        const tests::OutputLevel level(0);
        sysPartition partition;
        makePartition(partition);
        allowTools(box);
        for (const Operation& operation : kOperations) {
            SCOPED_TRACE(operation.mName);
            EXPECT_TRUE(operation.mRun(partition));
            const int next = tests::nextDescriptor();
            const failingcalls::Scope scope;
            // The check reads the mount table first, which uses a stream as well.
            const bool second = call == Call::eFdopen && operation.mRun == kOperations[2].mRun;
            failingcalls::fail(call, error, second ? 2 : 1);
            const Outcome outcome = outcomeOf([&] { return operation.mRun(partition); });
            EXPECT_FALSE(outcome.mDone);
            EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
            EXPECT_EQ(tests::nextDescriptor(), next);
            if (operation.mProgress != noProgress) {
                EXPECT_EQ(operation.mProgress(partition), progress);
            }
            // Only a failure of waitpid() leaves the child behind.
            EXPECT_EQ(tests::hasChildren(), call == Call::eWaitpid);
        }
    });
}

}  // namespace

TEST(ToolFailures, WithoutAPipe) {
    failEach(Call::ePipe2, EMFILE, 0);
}

TEST(ToolFailures, WithoutAChild) {
    failEach(Call::eFork, EAGAIN, 0);
}

TEST(ToolFailures, WithoutAStream) {
    failEach(Call::eFdopen, ENOMEM, 0);
}

TEST(ToolFailures, AChildThatCannotBeWaitedFor) {
    failEach(Call::eWaitpid, ECHILD, 100000);
}

TEST(ToolFailures, NothingIsRunWithoutAPipeOrAChild) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const failingcalls::Scope scope;
        for (const Operation& operation : kOperations) {
            failingcalls::fail(Call::ePipe2, ENFILE);
            EXPECT_FALSE(operation.mRun(partition)) << operation.mName;
            failingcalls::fail(Call::eFork, ENOMEM);
            EXPECT_FALSE(operation.mRun(partition)) << operation.mName;
        }
        EXPECT_TRUE(box.runs().empty());
    });
}

TEST(ToolFailures, AnInterruptedWaitGoesOn) {
    inSandbox([](Sandbox& box) {
        const tests::OutputLevel level(0);
        sysPartition partition;
        makePartition(partition);
        allowTools(box);
        const failingcalls::Scope scope;
        for (const Operation& operation : kOperations) {
            failingcalls::fail(Call::eWaitpid, EINTR);
            EXPECT_TRUE(operation.mRun(partition)) << operation.mName;
            EXPECT_FALSE(tests::hasChildren());
        }
    });
}

TEST(ToolFailures, AFormatWithoutALabelRunsNothing) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        EXPECT_FALSE(partition.ext3_format(nullptr));
        EXPECT_EQ(partition.ext3_format_progress(), 0);
        EXPECT_FALSE(partition.xfs_format(nullptr));
        sysPartition::Failure failure;
        EXPECT_TRUE(sysPartition::lastFailure(&failure));
        EXPECT_EQ(failure.mStep, sysPartition::eFailFormat);
        EXPECT_EQ(failure.mErrno, EINVAL);
        EXPECT_TRUE(box.runs().empty());
    });
}
