// SPDX-License-Identifier: MIT
//
// Tools as children: what the child finds, and what the caller receives.
#include "base/process/tool.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "base/io/linereader.h"
#include "tests/support/capture.h"
#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/tempdir.h"
#include "tests/unit/base/process/childviewtool.h"

namespace {

using base::ToolCommand;
using base::ToolResult;
using failingcalls::Call;
using tests::Capture;
using tests::ChildView;
using tests::childViewTool;
using tests::noChildLeft;
using tests::readOutput;
using tests::TempDir;

TEST(ReadToolTest, OutputOfTheChildIsRead) {
    const TempDir directory;
    const Capture capture;
    std::string output;
    const ToolResult result = readOutput(
        childViewTool(directory.path("report"), {"say:out", "complain:err", "exit:3"}), output);
    EXPECT_EQ("out", output);
    EXPECT_TRUE(result.mRan && result.mExecuted);
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(3, WEXITSTATUS(result.mStatus));
    EXPECT_EQ(0, result.mError);
    EXPECT_EQ("err", capture.errors());
    const ChildView view(directory.path("report"));
    EXPECT_EQ("0 1 2", view.numbers());
    EXPECT_EQ("pipe w", view.on(1));
    EXPECT_TRUE(noChildLeft());
}

TEST(FeedToolTest, InputOfTheChildIsWritten) {
    const TempDir directory;
    const Capture capture;
    const ToolResult result =
        base::feedTool(childViewTool(directory.path("report"), {"say:out", "read"}), "0,100\n");
    EXPECT_TRUE(result.succeeded() && result.mExecuted);
    EXPECT_EQ("out", capture.output());
    const ChildView view(directory.path("report"));
    EXPECT_EQ("0 1 2", view.numbers());
    EXPECT_EQ("pipe r", view.on(0));
    EXPECT_EQ("0,100", view.only("input"));
    EXPECT_TRUE(noChildLeft());
}

TEST(FeedToolTest, EmptyInputIsAnInput) {
    const TempDir directory;
    EXPECT_TRUE(base::feedTool(childViewTool(directory.path("report"), {"read"}), "").succeeded());
    EXPECT_EQ("", ChildView(directory.path("report")).only("input"));
}

TEST(ReadToolTest, BothEndsAreHandedOnUnderTheirNumbersOnRequest) {
    const TempDir directory;
    const Capture capture;
    ToolCommand command;
    command.mArguments = {
        "/bin/sh", "-c",
        "exec " KESTROVA_CHILDVIEW " " + directory.path("report") + " \"write:$0:1 2 3\" say:out",
        ""};
    command.mPipeArgument = 3;
    std::string output;
    EXPECT_TRUE(readOutput(command, output).succeeded());
    EXPECT_EQ("1 2 3", output);
    EXPECT_EQ("out", capture.output());
    const ChildView view(directory.path("report"));
    EXPECT_EQ(5U, view.mDescriptors.size()) << view.numbers();
    EXPECT_EQ("pipe w", view.on(std::stoi(view.all("argument").at(2).substr(6))));
    int readers = 0;
    for (const auto& each : view.mDescriptors) {
        readers += each.first > 2 && view.on(each.first) == "pipe r" ? 1 : 0;
    }
    EXPECT_EQ(1, readers);
}

TEST(ReadToolTest, ArgumentsAndEnvironmentAreAsGiven) {
    const TempDir directory;
    ASSERT_EQ(0, ::setenv("KESTROVA_TEST", "value", 1));
    std::string output;
    EXPECT_TRUE(readOutput(childViewTool(directory.path("report"), {"say:", "say: a b "}), output)
                    .succeeded());
    EXPECT_EQ(" a b ", output);
    const ChildView view(directory.path("report"));
    EXPECT_TRUE(view.hasEnvironment("KESTROVA_TEST=value"));
    EXPECT_EQ("say:", view.all("argument")[2]);
    ASSERT_EQ(0, ::unsetenv("KESTROVA_TEST"));
}

TEST(ReadToolTest, NiceIsAddedToOurPriority) {
    const TempDir directory;
    const int ours = ::getpriority(PRIO_PROCESS, 0);
    for (const int nice : {0, 10}) {
        ToolCommand command = childViewTool(directory.path("report"), {});
        command.mNice = nice;
        std::string output;
        EXPECT_TRUE(readOutput(command, output).succeeded());
        EXPECT_EQ(std::to_string(std::min(ours + nice, 19)),
                  ChildView(directory.path("report")).only("nice"));
    }
    EXPECT_EQ(ours, ::getpriority(PRIO_PROCESS, 0));
}

ToolCommand missingTool(const char* text) {
    ToolCommand command;
    command.mArguments = {"/nowhere/at/all"};
    command.mExecFailure = text;
    command.mExecFailureStatus = 20;
    return command;
}

TEST(ReadToolTest, ToolThatCannotBeExecutedReportsAndEndsWithItsStatus) {
    for (const char* const text : {"Error spawning", static_cast<const char*>(nullptr)}) {
        const Capture capture;
        std::string output;
        const ToolResult result = readOutput(missingTool(text), output);
        EXPECT_EQ("", output);
        EXPECT_TRUE(result.mRan);
        EXPECT_FALSE(result.mExecuted);
        EXPECT_EQ(20, WEXITSTATUS(result.mStatus));
        EXPECT_EQ(ENOENT, result.mError);
        EXPECT_EQ(text != nullptr ? "Error spawning: No such file or directory\n" : "",
                  capture.errors());
    }
}

TEST(FeedToolTest, ToolThatCannotBeExecutedIsTold) {
    const Capture capture;
    const ToolResult result = base::feedTool(missingTool("Error spawning"), "script\n");
    EXPECT_FALSE(result.mExecuted);
    EXPECT_EQ(ENOENT, result.mError);
}

// A tool may exit with the status of one that cannot be executed.
TEST(ReadToolTest, StatusOfAToolIsNotTakenForAMissingTool) {
    const TempDir directory;
    std::string output;
    const ToolResult result =
        readOutput(childViewTool(directory.path("report"), {"exit:20"}), output);
    EXPECT_EQ(20, WEXITSTATUS(result.mStatus));
    EXPECT_TRUE(result.mExecuted);
    EXPECT_EQ(0, result.mError);
}

// Without its own standard input it would read the caller's as its script.
TEST(FeedToolTest, ToolWhoseStreamCannotBeConnectedIsNotExecuted) {
    const TempDir directory;
    const Capture capture;
    const failingcalls::Scope calls;
    failingcalls::failAll(Call::eDup2, EBUSY);
    const ToolResult result =
        base::feedTool(childViewTool(directory.path("report"), {"read"}), "script\n");
    EXPECT_FALSE(result.mExecuted);
    EXPECT_EQ(20, WEXITSTATUS(result.mStatus));
    EXPECT_EQ(EBUSY, result.mError);
    EXPECT_EQ("Error spawning: Device or resource busy\n", capture.errors());
    EXPECT_TRUE(ChildView(directory.path("report")).all("argument").empty());
}

TEST(ReadToolTest, RawStatusTellsASignal) {
    const TempDir directory;
    std::string output;
    EXPECT_EQ(SIGKILL,
              readOutput(childViewTool(directory.path("report"), {"raise:9"}), output).mStatus);
}

TEST(ReadToolTest, EveryExitStatusIsToldAndOnlyZeroSucceeds) {
    const TempDir directory;
    for (int status = 0; status <= 255; ++status) {
        std::string output;
        const ToolResult result = readOutput(
            childViewTool(directory.path("report"), {"exit:" + std::to_string(status)}), output);
        EXPECT_EQ(status, WEXITSTATUS(result.mStatus));
        EXPECT_EQ(status == 0, result.succeeded());
    }
}

// A closed output does not mean that the tool has exited.
TEST(ReadToolTest, ToolThatClosesItsOutputIsWaitedFor) {
    const TempDir directory;
    std::string output;
    const ToolResult result = readOutput(
        childViewTool(directory.path("report"), {"say:early", "close:1", "exit:4"}), output);
    EXPECT_EQ("early", output);
    EXPECT_EQ(4, WEXITSTATUS(result.mStatus));
}

TEST(ReadToolTest, GrandchildThatKeepsThePipeIsReadToItsEnd) {
    const Capture capture;
    ToolCommand command;
    command.mArguments = {"/bin/sh", "-c", "(read line; echo late) <&3 & exit 5"};
    int go[2] = {-1, -1};
    ASSERT_EQ(0, ::pipe2(go, 0));
    ASSERT_EQ(3, ::dup2(go[0], 3));
    std::string output;
    const ToolResult result = base::readTool(command, [&](std::FILE* stream) {
        // Only now, whether its parent has exited or not, does it receive its input.
        EXPECT_EQ(3, ::write(go[1], "go\n", 3));
        tests::readAll(stream, output);
    });
    EXPECT_EQ("late\n", output);
    EXPECT_EQ(5, WEXITSTATUS(result.mStatus));
    (void)::close(go[0]);
    (void)::close(go[1]);
    (void)::close(3);
}

TEST(ReadToolTest, FailingPipeForkOrMemoryIsNoRun) {
    const TempDir directory;
    const ToolCommand command = childViewTool(directory.path("report"), {});
    struct Failing {
        Call mCall;
        int mError;
    };
    for (const Failing& failing : {Failing{Call::ePipe2, EMFILE}, Failing{Call::eFork, EAGAIN}}) {
        const std::set<int> before = tests::openDescriptors();
        for (const bool reads : {true, false}) {
            const failingcalls::Scope calls;
            failingcalls::fail(failing.mCall, failing.mError);
            std::string output;
            const ToolResult result =
                reads ? readOutput(command, output) : base::feedTool(command, "script\n");
            EXPECT_FALSE(result.mRan || result.mExecuted || result.succeeded());
            EXPECT_EQ(-1, result.mStatus);
            EXPECT_EQ(failing.mError, result.mError);
        }
        EXPECT_EQ(before, tests::openDescriptors());
        EXPECT_TRUE(noChildLeft());
    }
    EXPECT_TRUE(ChildView(directory.path("report")).all("argument").empty());
}

// A child that writes more than a pipe holds is drained and reaped.
TEST(ReadToolTest, WithoutAStreamTheChildIsBroughtToItsEnd) {
    const TempDir directory;
    const Capture capture;
    const std::set<int> before = tests::openDescriptors();
    {
        const failingcalls::Scope calls;
        failingcalls::fail(Call::eFdopen, ENOMEM);
        ToolCommand command =
            childViewTool(directory.path("report"), {"say:" + std::string(120000, 'x')});
        command.mStreamFailure = "no stream\n";
        std::string output;
        const ToolResult result = readOutput(command, output);
        EXPECT_FALSE(result.mRan);
        EXPECT_EQ(ENOMEM, result.mError);
    }
    EXPECT_TRUE(noChildLeft());
    EXPECT_EQ("no stream\n", capture.output());
    EXPECT_EQ(before, tests::openDescriptors());
}

TEST(ReadToolTest, ReaderThatThrowsLeavesNoChild) {
    const TempDir directory;
    const std::set<int> before = tests::openDescriptors();
    const ToolCommand command =
        childViewTool(directory.path("report"), {"say:" + std::string(120000, 'x')});
    EXPECT_THROW(base::readTool(command, [](std::FILE*) { throw std::bad_alloc(); }),
                 std::bad_alloc);
    EXPECT_TRUE(noChildLeft());
    EXPECT_EQ(before, tests::openDescriptors());
}

// Unread output in the pipe does not block the tool forever.
TEST(ReadToolTest, ReaderMayStopEarly) {
    const TempDir directory;
    const ToolResult result =
        base::readTool(childViewTool(directory.path("report"), {"say:" + std::string(120000, 'x')}),
                       [](std::FILE* stream) { EXPECT_EQ('x', base::readCharacter(stream)); });
    EXPECT_EQ(SIGPIPE, result.mStatus);
    EXPECT_TRUE(noChildLeft());
}

}  // namespace
