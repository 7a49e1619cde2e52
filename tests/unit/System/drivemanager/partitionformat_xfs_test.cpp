// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

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

Role maker(const std::string& label) {
    return Role({"/sbin/mkfs.xfs", "-L", label, "-f", "-l", "lazy-count=0", "/dev/sda1"});
}

}  // namespace

TEST(XfsFormat, RunsTheToolAsItMust) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const tests::OutputLevel level(0);
        box.expect(maker("DVRData"));
        EXPECT_TRUE(partition.xfs_format("DVRData"));
        tests::expectFormatterRun(box.runs().at(0));
    });
}

TEST(XfsFormat, EchoesTheOutputAndItsEnd) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(maker("x").print("meta-data=/dev/sda1\n\tdata %s\n"));
        box.expect(
            maker("x").print("a\xff"
                             "b"));
        box.expect(maker("x"));
        const auto format = [&] { return partition.xfs_format("x"); };
        EXPECT_EQ(outcomeOf(format).mOutput, "meta-data=/dev/sda1\n\tdata %s\n\xff");
        EXPECT_EQ(outcomeOf(format).mOutput,
                  "a\xff"
                  "b\xff");
        EXPECT_EQ(outcomeOf(format).mOutput, "\xff");
        EXPECT_EQ(partition.ext3_format_progress(), 0);
    });
}

// The result of one read is one message: one lock, one write.
TEST(XfsFormat, EchoesPiecesAndNotCharacters) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const std::string text(1000, 'x');
        box.expect(maker("x").print(text));
        const failingcalls::Scope scope;
        int writes = 0;
        const Outcome outcome = outcomeOf([&] {
            const bool done = partition.xfs_format("x");
            writes = failingcalls::count(Call::eWrite);
            return done;
        });
        EXPECT_EQ(outcome.mOutput, text + "\xff");
        EXPECT_EQ(writes, 2);
    });
}

TEST(XfsFormat, EchoesWhileTheToolRuns) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(maker("x").print("first").hold().print("second"));
        std::string early;
        bool done = false;
        std::string all;
        {
            const tests::Capture capture;
            tests::Background format([&] { return partition.xfs_format("x"); });
            box.awaitHeld();
            (void)tests::eventually([&] { return capture.output().size() >= 5; });
            early = capture.output();
            box.release();
            done = format.result();
            all = capture.output();
        }
        EXPECT_EQ(early, "first");
        EXPECT_TRUE(done);
        EXPECT_EQ(all, "firstsecond\xff");
    });
}

TEST(XfsFormat, AtLevelZeroTheOutputIsReadAndNotShown) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const tests::OutputLevel level(0);
        box.expect(maker("x").print(std::string(200000, 'x')));
        const Outcome outcome = outcomeOf([&] { return partition.xfs_format("x"); });
        EXPECT_TRUE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
    });
}

TEST(XfsFormat, FailsWhenTheToolFails) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const tests::OutputLevel level(0);
        box.expect(maker("x").exit(1));
        EXPECT_FALSE(partition.xfs_format("x"));
        box.expect(maker("x").die(SIGSEGV));
        EXPECT_FALSE(partition.xfs_format("x"));
    });
}

TEST(XfsFormat, AMissingToolReportsFromTheChild) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const failingcalls::Scope scope;
        siginfo_t end = {};
        failingcalls::before(Call::eWaitpid, [&] { end = tests::endOfChild(); });
        box.removeTool("/sbin/mkfs.xfs");
        const Outcome outcome = outcomeOf([&] { return partition.xfs_format("x"); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput, "\xff");
        EXPECT_EQ(outcome.mErrors, "Error spawning mkfs.xfs: No such file or directory\n");
        EXPECT_EQ(end.si_status, 255);
    });
}
