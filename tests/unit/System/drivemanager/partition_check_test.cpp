// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

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

/// The checker receives its end of the pipe by number; the writing end is the second descriptor.
Role checker() {
    const std::string number = std::to_string(tests::nextDescriptor() + 1);
    return Role({"/sbin/fsck.ext3", "-C", number, "-p", "/dev/sda1"});
}

}  // namespace

TEST(Ext3Check, RunsTheToolAsItMust) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(checker().report("5 1 1 /dev/sda1\n"));
        EXPECT_TRUE(partition.ext3_fscheck());
        const tests::ToolRun run = box.runs().at(0);
        EXPECT_EQ(run.mEnvironment, tests::ownEnvironment());
        EXPECT_EQ(run.mNice, tests::nicerBy(10));
        EXPECT_EQ(run.mDirectory, "/");
        const int writeEnd = std::stoi(run.mArguments.at(2));
        ASSERT_EQ(run.mDescriptors.size(), 5U);
        for (int number = 0; number < 3; ++number) {
            EXPECT_EQ(run.mDescriptors.at(number), tests::descriptorText(number));
        }
        const std::string toWrite = run.mDescriptors.at(writeEnd);
        const std::string toRead = run.mDescriptors.at(writeEnd - 1);
        EXPECT_EQ(toWrite.substr(0, 5), "pipe:");
        EXPECT_EQ(toWrite.back(), 'w');
        EXPECT_EQ(toRead, toWrite.substr(0, toWrite.size() - 1) + "r");
        EXPECT_FALSE(tests::hasChildren());
    });
}

TEST(Ext3Check, ItsOutputIsTheCallers) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        std::string output;
        bool done = false;
        {
            const tests::Capture capture;
            box.expect(checker().print("/dev/sda1: clean\n").report("1 1 1\n"));
            done = partition.ext3_fscheck();
            output = capture.output();
        }
        EXPECT_TRUE(done);
        EXPECT_EQ(output, "/dev/sda1: clean\n");
    });
}

TEST(Ext3Check, ProgressFollowsEveryLine) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const std::vector<std::pair<std::string, int>> lines = {
            {"", 0},
            {"1 0 100 /dev/sda1\n", 0},
            {"1 50 100 /dev/sda1\n", 10000},
            {"3 50 100 /dev/sda1\n", 50000},
            {"3 60\nno numbers\n\n3 70 0\n4 0 100 /dev/sda1\n", 60000},
            {"1 99999999999 1 /dev/sda1\n", 858973459},
            {"5 100 100 " + std::string(5000, 'x') + "\n", 100000},
            {std::string(255, ' ') + "2 1 1\n", 40000},
        };
        Role role = checker();
        for (const auto& line : lines) {
            role.report(line.first).hold();
        }
        box.expect(role);
        const failingcalls::Scope scope;
        int beforeFork = -1;
        failingcalls::before(Call::eFork, [&] { beforeFork = partition.ext3_fscheck_progress(); });
        int beforeWait = -1;
        failingcalls::before(Call::eWaitpid,
                             [&] { beforeWait = partition.ext3_fscheck_progress(); });
        Background check([&] { return partition.ext3_fscheck(); });
        for (const auto& [text, value] : lines) {
            box.awaitHeld();
            EXPECT_TRUE(tests::eventually([&, expected = value] {
                return partition.ext3_fscheck_progress() == expected;
            })) << text
                << partition.ext3_fscheck_progress();
            box.release();
        }
        EXPECT_TRUE(check.result());
        EXPECT_EQ(beforeFork, 0);
        // The end of the output alone does not change the progress.
        EXPECT_EQ(beforeWait, 40000);
        EXPECT_EQ(partition.ext3_fscheck_progress(), 100000);
    });
}

TEST(Ext3Check, ASecondRunBeginsAtZero) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(checker());
        box.expect(checker());
        EXPECT_TRUE(partition.ext3_fscheck());
        const failingcalls::Scope scope;
        int first = -1;
        failingcalls::before(Call::ePipe2, [&] { first = partition.ext3_fscheck_progress(); });
        EXPECT_TRUE(partition.ext3_fscheck());
        EXPECT_EQ(first, 0);
    });
}

TEST(Ext3Check, AMountedPartitionIsLeftAlone) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        box.expect(checker().exit(1));
        EXPECT_FALSE(partition.ext3_fscheck());
        EXPECT_EQ(partition.ext3_fscheck_progress(), 100000);
        box.replaceMounts("/dev/sda1 /boot-sw ext3 rw 0 0\n");
        EXPECT_TRUE(partition.ext3_fscheck());
        EXPECT_EQ(partition.ext3_fscheck_progress(), 100000);
        EXPECT_EQ(box.runs().size(), 1U);

        sysPartition fresh;
        makePartition(fresh);
        EXPECT_TRUE(fresh.ext3_fscheck());
        EXPECT_EQ(fresh.ext3_fscheck_progress(), 0);
    });
}

TEST(Ext3Check, EveryStatusButZeroFails) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        for (const int status : {1, 2, 4, 8, 128}) {
            box.expect(checker().report("5 1 1\n").exit(status));
            EXPECT_FALSE(partition.ext3_fscheck()) << status;
            EXPECT_EQ(partition.ext3_fscheck_progress(), 100000);
        }
        box.expect(checker().die(SIGTERM));
        EXPECT_FALSE(partition.ext3_fscheck());
    });
}

TEST(Ext3Check, AMissingToolSaysNothing) {
    inSandbox([](Sandbox& box) {
        sysPartition partition;
        makePartition(partition);
        const failingcalls::Scope scope;
        siginfo_t end = {};
        failingcalls::before(Call::eWaitpid, [&] { end = tests::endOfChild(); });
        box.removeTool("/sbin/fsck.ext3");
        const Outcome outcome = outcomeOf([&] { return partition.ext3_fscheck(); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
        EXPECT_EQ(end.si_code, CLD_EXITED);
        EXPECT_EQ(end.si_status, 255);
        EXPECT_EQ(partition.ext3_fscheck_progress(), 100000);
    });
}
