// SPDX-License-Identifier: MIT
//
// Writing a new partition table.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/drivemanager/fakedrive.h"
#include "tests/unit/System/drivemanager/partitionrun.h"

using failingcalls::Call;
using tests::inSandbox;
using tests::OpenDrive;
using tests::Outcome;
using tests::outcomeOf;
using tests::Role;
using tests::Sandbox;
using tests::tableLine;
using tests::tableTool;
using tests::ToolRun;

namespace {

Role writer() {
    return Role({"/sbin/sfdisk", "-q", "-L", "-uM", "/dev/sda"});
}

bool partition(OpenDrive& drive) {
    int sizes[] = {100, 200, 0, 0};
    return drive.partitionCustom(sizes);
}

void makeDrive(OpenDrive& drive) {
    drive.mDevice = "/dev/sda";
    tests::writeFile("/dev/sda1", "");
}

/// Expects that a writer that was run after `first` saw no end of its input.
void expectNoInput(const std::vector<ToolRun>& runs, std::size_t first) {
    ASSERT_LE(runs.size(), first + 1);
    for (std::size_t i = first; i < runs.size(); ++i) {
        EXPECT_FALSE(runs[i].mReadInput);
    }
}

}  // namespace

TEST(PartitionCustom, RunsTheToolAsItMust) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.expect(writer().readInput());
        box.expect(tableTool().print(tableLine("/dev/sda1", 5, "83")));
        EXPECT_TRUE(partition(drive));
        const ToolRun run = box.runs().at(0);
        EXPECT_EQ(run.mInput, ",100\n,200\n");
        EXPECT_EQ(run.mEnvironment, tests::ownEnvironment());
        EXPECT_EQ(run.mNice, tests::nicerBy(0));
        ASSERT_EQ(run.mDescriptors.size(), 3U);
        EXPECT_EQ(run.mDescriptors.at(0).substr(0, 5), "pipe:");
        EXPECT_EQ(run.mDescriptors.at(0).back(), 'r');
        EXPECT_EQ(run.mDescriptors.at(1), tests::descriptorText(1));
        EXPECT_EQ(run.mDescriptors.at(2), tests::descriptorText(2));
        EXPECT_EQ(drive.numPartitions(), 1);
    });
}

TEST(PartitionCustom, GivesEachScript) {
    inSandbox([](Sandbox& box) {
        OpenDrive drive;
        makeDrive(drive);
        box.allow(tableTool());
        struct Case {
            int mSizes[4];
            const char* mScript;
        };
        const Case cases[] = {{{-1, 0, 0, 0}, ";\n"},
                              {{100, -1, 5, 5}, ",100\n;\n"},
                              {{100, 200, 0, 5}, ",100\n,200\n"},
                              {{0, 5, 5, 5}, ""},
                              {{-7, 5, 5, 5}, ""},
                              {{-1, 5, 5, 5}, ";\n"},
                              {{100, 200, 300, 400}, ",100\n,200\n,300\n,400\n"}};
        for (Case each : cases) {
            box.expect(writer().readInput());
            EXPECT_TRUE(drive.partitionCustom(each.mSizes));
            const std::vector<ToolRun> runs = box.runs();
            EXPECT_EQ(runs.at(runs.size() - 2).mInput, each.mScript);
        }
        box.expect(writer().readInput());
        EXPECT_TRUE(drive.partitionOneBig());
        const std::vector<ToolRun> runs = box.runs();
        EXPECT_EQ(runs.at(runs.size() - 2).mInput, ";\n");
    });
}

TEST(PartitionCustom, RebuildsTheListAlsoAfterAFailure) {
    inSandbox([](Sandbox& box) {
        const tests::OutputLevel level(0);
        OpenDrive drive;
        makeDrive(drive);
        for (Role role : {writer().readInput().exit(1), writer().readInput().die(SIGKILL)}) {
            drive.delPartitions();
            box.expect(role);
            box.expect(tableTool().print(tableLine("/dev/sda1", 5, "83")));
            EXPECT_FALSE(partition(drive));
            EXPECT_EQ(drive.numPartitions(), 1);
        }
        // A failure of the listing does not count.
        box.expect(writer().readInput());
        box.expect(tableTool().exit(1));
        EXPECT_TRUE(partition(drive));
        EXPECT_EQ(drive.numPartitions(), 0);
    });
}

TEST(PartitionCustom, AMissingToolReportsFromTheChild) {
    inSandbox([](Sandbox& box) {
        const tests::OutputLevel level(0);
        OpenDrive drive;
        makeDrive(drive);
        box.removeTool("/sbin/sfdisk");
        const failingcalls::Scope scope;
        std::vector<int> ends;
        failingcalls::before(Call::eWaitpid,
                             [&] { ends.push_back(tests::endOfChild().si_status); });
        const Outcome outcome = outcomeOf([&] { return partition(drive); });
        EXPECT_FALSE(outcome.mDone);
        EXPECT_EQ(outcome.mErrors,
                  "Error spawning sfdisk: No such file or directory\n"
                  "Error spawning sfdisk: No such file or directory\n");
        EXPECT_EQ(ends, (std::vector<int>{20, 20}));
    });
}

TEST(PartitionCustom, AToolThatDiesWithoutReadingTakesNobodyAlong) {
    inSandbox([](Sandbox& box) {
        const tests::OutputLevel level(0);
        OpenDrive drive;
        makeDrive(drive);
        ASSERT_NE(::signal(SIGPIPE, SIG_DFL), SIG_ERR);
        sigset_t before;
        ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &before), 0);
        const failingcalls::Scope scope;
        // The script is written when the stream is closed; the reader has exited by then.
        int opened = 0;
        failingcalls::before(Call::eFdopen, [&] {
            if (opened++ == 0) {
                (void)tests::endOfChild();
            }
        });
        box.expect(writer().exit(1));
        box.expect(tableTool());
        EXPECT_FALSE(partition(drive));
        sigset_t pending;
        ASSERT_EQ(sigpending(&pending), 0);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
        sigset_t after;
        ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &after), 0);
        EXPECT_EQ(sigismember(&after, SIGPIPE), sigismember(&before, SIGPIPE));
        // A status of 0 counts, even if the tool did not read the script.
        opened = 0;
        box.expect(writer().exit(0));
        box.expect(tableTool());
        EXPECT_TRUE(partition(drive));
    });
}

TEST(PartitionCustom, EachFailingCall) {
    inSandbox([](Sandbox& box) {
        const tests::OutputLevel level(0);
        OpenDrive drive;
        makeDrive(drive);
        box.allow(writer().readInput());
        box.allow(tableTool().print(tableLine("/dev/sda1", 5, "83")));
        for (const Call call : {Call::ePipe2, Call::eFork, Call::eFdopen, Call::eWaitpid}) {
            EXPECT_TRUE(partition(drive));
            const int next = tests::nextDescriptor();
            const std::size_t runs = box.runs().size();
            const failingcalls::Scope scope;
            failingcalls::fail(call, ENOMEM);
            // A child that is not waited for has still exited, and is in the record.
            if (call == Call::eWaitpid) {
                failingcalls::before(call, [] { (void)tests::endOfChild(); });
            }
            const Outcome outcome = outcomeOf([&] { return partition(drive); });
            EXPECT_FALSE(outcome.mDone);
            EXPECT_EQ(outcome.mOutput + outcome.mErrors, "");
            EXPECT_EQ(tests::nextDescriptor(), next);
            EXPECT_EQ(tests::hasChildren(), call == Call::eWaitpid);
            // Only a tool that may have changed the disk is followed by a new listing.
            const std::size_t more = box.runs().size() - runs;
            if (call == Call::eFdopen) {
                expectNoInput(box.runs(), runs);  // killed, possibly before execve()
            } else {
                EXPECT_EQ(more, call == Call::eWaitpid ? 2U : 0U);
            }
            EXPECT_EQ(drive.numPartitions(), 1);
        }
    });
}

// A table without its last lines would destroy the recordings as well.
TEST(PartitionCustom, AToolThatCannotBeGivenItsWholeScriptIsKilled) {
    inSandbox([](Sandbox& box) {
        const tests::OutputLevel level(0);
        OpenDrive drive;
        makeDrive(drive);
        box.allow(writer().readInput());
        box.allow(tableTool());
        for (const int nth : {1, 2}) {
            const std::size_t runs = box.runs().size();
            const failingcalls::Scope scope;
            failingcalls::limitTransfers(6);
            failingcalls::fail(Call::eWrite, EIO, nth);
            std::vector<siginfo_t> ends;
            failingcalls::before(Call::eWaitpid, [&] { ends.push_back(tests::endOfChild()); });
            EXPECT_FALSE(partition(drive)) << nth;
            ASSERT_EQ(ends.size(), 2U);
            EXPECT_EQ(ends[0].si_status, SIGKILL);
            EXPECT_EQ(drive.partitionToolStatus(), SIGKILL);
            EXPECT_EQ(drive.partitionToolError(), EIO);
            for (std::size_t i = runs; i < box.runs().size(); ++i) {
                EXPECT_FALSE(box.runs()[i].mReadInput) << nth;
            }
        }
    });
}
