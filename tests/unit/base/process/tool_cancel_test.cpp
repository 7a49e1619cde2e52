// SPDX-License-Identifier: MIT
//
// Threads that are cancelled while a tool runs: no zombie, no leaked descriptor, and no tool with a
// part of its input.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

#include "base/process/tool.h"
#include "tests/support/capture.h"
#include "tests/support/descriptors.h"
#include "tests/support/failingcalls.h"
#include "tests/support/tempdir.h"
#include "tests/unit/base/process/childviewtool.h"

namespace {

using failingcalls::Call;
using tests::childViewTool;
using tests::noChildLeft;
using tests::TempDir;

/// Runs a function on its own thread. Returns whether the thread was cancelled.
bool wasCancelled(std::function<void()> function) {
    pthread_t thread = {};
    EXPECT_EQ(0, pthread_create(
                     &thread, nullptr,
                     [](void* given) -> void* {
                         (*static_cast<std::function<void()>*>(given))();
                         pthread_testcancel();
                         return nullptr;
                     },
                     &function));
    void* result = nullptr;
    EXPECT_EQ(0, pthread_join(thread, &result));
    return result == PTHREAD_CANCELED;
}

void cancelSelf() {
    EXPECT_EQ(0, pthread_cancel(pthread_self()));
}

class ToolCancelTest : public testing::Test {
protected:
    const TempDir mDirectory;
    const std::string mReport = mDirectory.path("report");
    const failingcalls::Scope mCalls;
};

TEST_F(ToolCancelTest, BeforeTheStart) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer keeps the marks of frames that a cancellation has left";
#endif
    const std::set<int> before = tests::openDescriptors();
    const base::ToolCommand command = childViewTool(mReport, {"say:out"});
    EXPECT_TRUE(wasCancelled([&] {
        cancelSelf();
        std::string output;
        (void)tests::readOutput(command, output);
    }));
    EXPECT_TRUE(noChildLeft());
    EXPECT_EQ(before, tests::openDescriptors());
}

TEST_F(ToolCancelTest, WhileItsOutputIsRead) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer keeps the marks of frames that a cancellation has left";
#endif
    const std::set<int> before = tests::openDescriptors();
    const base::ToolCommand command = childViewTool(mReport, {"say:" + std::string(120000, 'x')});
    EXPECT_TRUE(wasCancelled([&] {
        (void)base::readTool(command, [](std::FILE*) {
            cancelSelf();
            pthread_testcancel();
        });
    }));
    EXPECT_TRUE(noChildLeft());
    EXPECT_EQ(before, tests::openDescriptors());
}

// The child has closed its output and still runs: the thread is cancelled in waitpid().
TEST_F(ToolCancelTest, WhileItIsWaitedFor) {
    const std::string fifo = mDirectory.path("fifo");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    const base::ToolCommand command = childViewTool(mReport, {"close:1", "await:" + fifo});
    failingcalls::before(Call::eWaitpid, [&fifo] {
        cancelSelf();
        // It now exits, whether the thread waits for it or not.
        const int release = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
        (void)::close(release);
    });
    base::ToolResult result;
    EXPECT_TRUE(wasCancelled([&] {
        std::string output;
        result = tests::readOutput(command, output);
    }));
    failingcalls::reset();
    EXPECT_TRUE(result.succeeded());
    EXPECT_TRUE(noChildLeft());
}

// A tool that received the end of its input would report it.
TEST_F(ToolCancelTest, BetweenTheStartAndTheWriting) {
    const tests::Capture capture;
    const base::ToolCommand command = childViewTool(mReport, {"read", "say:applied"});
    failingcalls::before(Call::eFdopen, cancelSelf);
    EXPECT_TRUE(wasCancelled([&] { (void)base::feedTool(command, "script\n"); }));
    EXPECT_TRUE(noChildLeft());
    EXPECT_EQ("", capture.output());
}

}  // namespace
