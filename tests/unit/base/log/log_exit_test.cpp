// SPDX-License-Identifier: MIT
//
// Detached workers, and destructors, may still log while the process exits.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

struct Ended {
    int mStatus;
    std::string mOutput;
};

Ended runExitLogger(const char* way) {
    // Not shown if the test fails, because it is long and the checks report what matters.
    const int memory = ::memfd_create("output", MFD_CLOEXEC);
    (void)std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        (void)::dup2(memory, STDOUT_FILENO);
        (void)::setenv("TSAN_OPTIONS", "atexit_sleep_ms=0", 0);  // otherwise it waits a second for
                                                                 // more
        (void)::execl(KESTROVA_EXIT_LOGGER, KESTROVA_EXIT_LOGGER, way, nullptr);
        ::_exit(127);
    }
    Ended ended{-1, ""};
    (void)::waitpid(child, &ended.mStatus, 0);
    char buffer[65536];
    ssize_t count = 0;
    (void)::lseek(memory, 0, SEEK_SET);
    while ((count = ::read(memory, buffer, sizeof(buffer))) > 0) {
        ended.mOutput.append(buffer, static_cast<std::size_t>(count));
    }
    (void)::close(memory);
    return ended;
}

void expectWholeLinesAndBothDestructors(const std::string& output) {
    // The kernel may truncate the worker's last write when the process exits.
    std::istringstream lines(output.substr(0, output.rfind('\n') + 1));
    std::string line;
    bool contextOfWorker = false;
    std::string others;
    while (std::getline(lines, line)) {
        if (line == "worker:1 (level 1):") {
            contextOfWorker = true;
        } else if (line == "still here") {
            EXPECT_TRUE(contextOfWorker);
            contextOfWorker = false;
        } else {
            EXPECT_FALSE(contextOfWorker) << line;
            others += line.substr(0, line.find(" failed (")) + "\n";
        }
    }
    EXPECT_EQ(
        "worker\n"
        "exit:1 (level 1):\nlast goes\nexit:2 Assertion `last'\nstream of last\n"
        "exit:1 (level 1):\nfirst goes\nexit:2 Assertion `first'\nstream of first\n",
        others);
}

class LogExitTest : public testing::TestWithParam<const char*> {};

TEST_P(LogExitTest, DestructorsAndADetachedWorkerLogToTheEnd) {
    for (int round = 0; round < 20; ++round) {
        const Ended ended = runExitLogger(GetParam());
        ASSERT_TRUE(WIFEXITED(ended.mStatus)) << ended.mStatus;
        ASSERT_EQ(0, WEXITSTATUS(ended.mStatus)) << ended.mOutput.substr(0, 2000);
        expectWholeLinesAndBothDestructors(ended.mOutput);
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, LogExitTest, testing::Values("exit", "return"),
                         [](const auto& way) { return std::string(way.param); });

}  // namespace
