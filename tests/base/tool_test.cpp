// SPDX-License-Identifier: MIT
//
// Tools as children: what the child sees, and what the caller learns.
#include "base/tool.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "base/linereader.h"
#include "tests/base/childview.h"
#include "tests/support/capture.h"
#include "tests/support/failingcalls.h"
#include "tests/support/tempdir.h"

namespace {

using base::Tool;
using base::ToolPipe;
using failingcalls::Call;
using tests::Capture;
using tests::ChildView;
using tests::TempDir;

/// How to run the program childview, or another one.
class Command {
public:
    Command(const TempDir& directory, ToolPipe pipe, std::vector<std::string> actions)
        : mReport(directory.path("report")), mPipe(pipe), mTexts(std::move(actions)) {
        mTexts.insert(mTexts.begin(), {KESTROVA_CHILDVIEW, mReport});
    }
    base::ToolCommand get(bool lowPriority = false) {
        mPointers.clear();
        for (const std::string& text : mTexts) {
            mPointers.push_back(text.c_str());
        }
        mPointers.push_back(nullptr);
        return {mPointers.data(), mPipe, lowPriority, "Error spawning", 20};
    }
    ChildView view() const { return ChildView(mReport); }

private:
    std::string mReport;
    ToolPipe mPipe;
    std::vector<std::string> mTexts;
    std::vector<const char*> mPointers;
};

std::string readAll(std::FILE* stream) {
    std::string text;
    for (int byte = base::readCharacter(stream); byte != EOF; byte = base::readCharacter(stream)) {
        text += static_cast<char>(byte);
    }
    return text;
}

bool noChildLeft() {
    return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

TEST(ToolTest, OutputOfTheChildIsRead) {
    const TempDir directory;
    const Capture capture;
    Command command(directory, ToolPipe::eStandardOutput, {"say:out", "complain:err", "exit:3"});
    Tool tool;
    ASSERT_TRUE(tool.openPipe());
    ASSERT_EQ(Tool::Start::eStarted, tool.start(command.get()));
    EXPECT_EQ("out", readAll(tool.stream()));
    EXPECT_EQ(3, WEXITSTATUS(tool.finish()));
    EXPECT_EQ("err", capture.errors());
    const ChildView view = command.view();
    EXPECT_EQ("0 1 2", view.numbers());
    EXPECT_EQ("pipe w", view.on(1));
    EXPECT_TRUE(noChildLeft());
}

TEST(ToolTest, InputOfTheChildIsWritten) {
    const TempDir directory;
    const Capture capture;
    Command command(directory, ToolPipe::eStandardInput, {"say:out", "read"});
    Tool tool;
    ASSERT_TRUE(tool.openPipe());
    ASSERT_EQ(Tool::Start::eStarted, tool.start(command.get()));
    EXPECT_LE(0, std::fputs("0,100\n", tool.stream()));
    EXPECT_EQ(0, tool.finish());
    EXPECT_EQ("out", capture.output());
    const ChildView view = command.view();
    EXPECT_EQ("0 1 2", view.numbers());
    EXPECT_EQ("pipe r", view.on(0));
    EXPECT_EQ("0,100", view.only("input"));
}

TEST(ToolTest, BothEndsAreHandedOnUnderTheirNumbersOnRequest) {
    const TempDir directory;
    const Capture capture;
    Tool tool;
    ASSERT_TRUE(tool.openPipe());
    const std::string number = std::to_string(tool.writeDescriptor());
    Command command(directory, ToolPipe::eBothEnds, {"write:" + number + ":1 2 3\n", "say:out"});
    ASSERT_EQ(Tool::Start::eStarted, tool.start(command.get()));
    char line[16] = "";
    // Not to its end: the child holds the writing end itself.
    EXPECT_TRUE(base::readLine(tool.stream(), line, sizeof(line)));
    EXPECT_STREQ("1 2 3\n", line);
    EXPECT_EQ(0, tool.finish());
    EXPECT_EQ("out", capture.output());
    const ChildView view = command.view();
    EXPECT_EQ(5U, view.mDescriptors.size()) << view.numbers();
    EXPECT_EQ("pipe w", view.on(std::stoi(number)));
    int readers = 0;
    for (const auto& each : view.mDescriptors) {
        readers += each.first > 2 && view.on(each.first) == "pipe r" ? 1 : 0;
    }
    EXPECT_EQ(1, readers);
}

TEST(ToolTest, ArgumentsAndEnvironmentAreAsGiven) {
    const TempDir directory;
    ASSERT_EQ(0, ::setenv("KESTROVA_TEST", "value", 1));
    Command command(directory, ToolPipe::eStandardOutput, {"say:", "say: a b "});
    Tool tool;
    ASSERT_TRUE(tool.openPipe());
    ASSERT_EQ(Tool::Start::eStarted, tool.start(command.get()));
    EXPECT_EQ(" a b ", readAll(tool.stream()));
    EXPECT_EQ(0, tool.finish());
    EXPECT_TRUE(command.view().hasEnvironment("KESTROVA_TEST=value"));
    EXPECT_EQ("say:", command.view().all("argument")[2]);
    ASSERT_EQ(0, ::unsetenv("KESTROVA_TEST"));
}

TEST(ToolTest, LowPriorityIsTenMoreThanOurs) {
    const TempDir directory;
    const int ours = ::getpriority(PRIO_PROCESS, 0);
    for (const bool low : {false, true}) {
        Command command(directory, ToolPipe::eStandardOutput, {});
        Tool tool;
        ASSERT_TRUE(tool.openPipe());
        ASSERT_EQ(Tool::Start::eStarted, tool.start(command.get(low)));
        EXPECT_EQ(0, tool.finish());
        EXPECT_EQ(std::to_string(std::min(ours + (low ? 10 : 0), 19)), command.view().only("nice"));
    }
    EXPECT_EQ(ours, ::getpriority(PRIO_PROCESS, 0));
}

TEST(ToolTest, ToolThatCannotBeExecutedReportsAndEndsWithItsStatus) {
    const char* const arguments[] = {"/nowhere/at/all", nullptr};
    for (const char* const text : {"Error spawning", static_cast<const char*>(nullptr)}) {
        const Capture capture;
        Tool tool;
        ASSERT_TRUE(tool.openPipe());
        ASSERT_EQ(Tool::Start::eStarted,
                  tool.start({arguments, ToolPipe::eStandardOutput, false, text, 20}));
        EXPECT_EQ("", readAll(tool.stream()));
        EXPECT_EQ(20, WEXITSTATUS(tool.finish()));
        EXPECT_EQ(text != nullptr ? "Error spawning: No such file or directory\n" : "",
                  capture.errors());
    }
}

TEST(ToolTest, RawStatusTellsASignal) {
    const TempDir directory;
    Command command(directory, ToolPipe::eStandardOutput, {"raise:9"});
    Tool tool;
    ASSERT_TRUE(tool.openPipe());
    ASSERT_EQ(Tool::Start::eStarted, tool.start(command.get()));
    EXPECT_EQ(SIGKILL, tool.finish());
}

TEST(ToolTest, FailingPipeOrForkIsNoChild) {
    const TempDir directory;
    Command command(directory, ToolPipe::eStandardOutput, {});
    const failingcalls::Scope calls;
    failingcalls::fail(Call::ePipe2, EMFILE);
    Tool tool;
    EXPECT_FALSE(tool.openPipe());
    EXPECT_EQ(EMFILE, errno);
    ASSERT_TRUE(tool.openPipe());
    failingcalls::fail(Call::eFork, EAGAIN);
    EXPECT_EQ(Tool::Start::eNoChild, tool.start(command.get()));
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_TRUE(noChildLeft());
}

class ToolWithoutStreamTest : public testing::TestWithParam<ToolPipe> {};

// A child that writes more than a pipe holds, or waits for the end of its input, is not left alone.
TEST_P(ToolWithoutStreamTest, ChildIsBroughtToItsEnd) {
    const TempDir directory;
    const Capture capture;
    const bool reads = GetParam() == ToolPipe::eStandardInput;
    Command command(directory, GetParam(),
                    {reads ? std::string("read") : "say:" + std::string(120000, 'x'), "exit:0"});
    const int before = ::dup(STDIN_FILENO);
    (void)::close(before);
    {
        const failingcalls::Scope calls;
        failingcalls::fail(Call::eFdopen, ENOMEM);
        Tool tool;
        ASSERT_TRUE(tool.openPipe());
        EXPECT_EQ(Tool::Start::eNoStream, tool.start(command.get()));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_TRUE(noChildLeft());
    EXPECT_EQ(reads ? 1U : 0U, command.view().all("input").size());
    const int after = ::dup(STDIN_FILENO);
    (void)::close(after);
    EXPECT_EQ(before, after);
}

INSTANTIATE_TEST_SUITE_P(Pipes, ToolWithoutStreamTest,
                         testing::Values(ToolPipe::eStandardOutput, ToolPipe::eStandardInput));

TEST(ToolTest, DestructorWaitsForAChildThatNobodyFinished) {
    const TempDir directory;
    for (const ToolPipe pipe : {ToolPipe::eStandardOutput, ToolPipe::eStandardInput}) {
        const Capture capture;
        Command command(directory, pipe,
                        {pipe == ToolPipe::eStandardInput ? std::string("read")
                                                          : "say:" + std::string(120000, 'x')});
        {
            Tool tool;
            ASSERT_TRUE(tool.openPipe());
            ASSERT_EQ(Tool::Start::eStarted, tool.start(command.get()));
        }
        EXPECT_TRUE(noChildLeft());
    }
}

TEST(ToolTest, WithoutAStartNothingIsWaitedFor) {
    Tool tool;
    EXPECT_TRUE(tool.openPipe());
    const Tool unused;
    EXPECT_TRUE(noChildLeft());
}

}  // namespace
