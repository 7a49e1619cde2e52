// SPDX-License-Identifier: MIT
//
// Children with pipes, started by a process with missing standard streams, and concurrently with
// threads that open and close files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "base/io/descriptor.h"
#include "base/process/popen3.h"
#include "tests/support/inchild.h"
#include "tests/support/tempdir.h"
#include "tests/unit/base/childview.h"

namespace {

using tests::ChildView;
using tests::Findings;
using tests::inChild;
using tests::TempDir;

void noHook(void* /*argument*/) {}

/// Starts a child with all three pipes from a process in which the streams of the mask are closed.
std::string startWithClosed(int closedMask, bool withHook, const std::string& report) {
    Findings findings;
    for (int number = 0; number < 3; ++number) {
        if ((closedMask & 1 << number) != 0) {
            (void)::close(number);
        }
    }
    const char* arguments[] = {KESTROVA_CHILDVIEW, report.c_str(), "echo", "complain:err", nullptr};
    int ends[3] = {-1, -1, -1};
    const int child = kestrova_popen3_adv(&ends[0], &ends[1], &ends[2], arguments, environ, nullptr,
                                          withHook ? noHook : nullptr, nullptr);
    findings.expect(child > 0, "child");
    findings.expect(ends[0] > 2 && ends[1] > 2 && ends[2] > 2, "ends above 2");
    findings.expect(::write(ends[0], "text", 4) == 4 && ::close(ends[0]) == 0, "input");
    char out[8] = "";
    char err[8] = "";
    findings.expect(::read(ends[1], out, 8) == 4 && std::string(out) == "text", "output");
    findings.expect(::read(ends[2], err, 8) == 3 && std::string(err) == "err", "errors");
    int status = -1;
    findings.expect(::waitpid(child, &status, 0) == child && status == 0, "status");
    for (int number = 0; number < 3; ++number) {
        const bool closed = (closedMask & 1 << number) != 0;
        findings.expect((::fcntl(number, F_GETFD) < 0) == closed, "own streams as before");
    }
    return findings.text();
}

class Popen3ClosedStreamsTest : public testing::TestWithParam<int> {};

TEST_P(Popen3ClosedStreamsTest, PipesAreConnectedAllTheSame) {
    const TempDir directory;
    const std::string report = directory.path("report");
    for (const bool withHook : {false, true}) {
        EXPECT_EQ("", inChild([&] { return startWithClosed(GetParam(), withHook, report); }));
        const ChildView view(report);
        EXPECT_EQ("0 1 2", view.numbers());
        EXPECT_EQ("pipe r", view.on(0));
        EXPECT_EQ("pipe w", view.on(1));
        EXPECT_EQ("pipe w", view.on(2));
    }
}

INSTANTIATE_TEST_SUITE_P(Combinations, Popen3ClosedStreamsTest, testing::Range(0, 8));

// A daemon that another thread starts at this moment must not keep a pipe open.
TEST(CloseOnExecTest, ChildrenOfOtherThreadsInheritNothing) {
    const TempDir directory;
    const std::string report = directory.path("report");
    std::atomic<bool> stop{false};
    std::vector<std::thread> openers;
    for (int i = 0; i < 2; ++i) {
        openers.emplace_back([&stop] {
            while (!stop) {
                base::Pipe pipe;
                ASSERT_TRUE(pipe.open());
                const base::Descriptor file = base::openDescriptor("/proc/self/comm", O_RDONLY);
                ASSERT_TRUE(file.valid());
            }
        });
    }
    std::string unexpected;
    for (int round = 0; round < 60 && unexpected.empty(); ++round) {
        const char* arguments[] = {KESTROVA_CHILDVIEW, report.c_str(), nullptr};
        const int child = kestrova_popen3_adv(nullptr, nullptr, nullptr, arguments, environ,
                                              nullptr, round % 2 == 0 ? noHook : nullptr, nullptr);
        EXPECT_GT(child, 0);
        int status = -1;
        EXPECT_EQ(child, ::waitpid(child, &status, 0));
        const std::string numbers = ChildView(report).numbers();
        unexpected = numbers == "0 1 2" ? "" : numbers;
    }
    stop = true;
    for (std::thread& opener : openers) {
        opener.join();
    }
    EXPECT_EQ("", unexpected);
}

}  // namespace
