// SPDX-License-Identifier: MIT
//
// Shared by the tests of the long-running operations.
#ifndef KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_PARTITIONRUN_H
#define KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_PARTITIONRUN_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "System/drivemanager/partition.h"
#include "tests/support/capture.h"
#include "tests/support/sandbox.h"

namespace tests {

/// A partition object of "/dev/sda1", which is an empty file.
inline void makePartition(sysPartition& partition) {
    writeFile("/dev/sda1", "");
    ASSERT_TRUE(partition.init("/dev/sda1", 1, 0));
}

/// The result and the output of a partition operation.
struct Outcome {
    bool mDone;
    std::string mOutput;
    std::string mErrors;
};

template <class Operation>
Outcome outcomeOf(Operation operation) {
    const Capture capture;
    const bool done = operation();
    return {done, capture.output(), capture.errors()};
}

/// An operation on its own thread. Joins at the end of the scope, so release what it waits for
/// first.
class Background {
public:
    template <class Operation>
    explicit Background(Operation operation)
        : mThread([this, operation] {
              mKernelThread = ::gettid();
              mResult = operation();
          }) {}
    ~Background() {
        if (mThread.joinable()) {
            mThread.join();
        }
    }
    bool result() {
        mThread.join();
        return mResult;
    }
    pthread_t handle() { return mThread.native_handle(); }
    /// True while the thread sleeps in the kernel.
    bool sleeps() const {
        const std::string path =
            "/proc/self/task/" + std::to_string(mKernelThread.load()) + "/stat";
        const std::string text = readFile(path);
        return text.find(") S ") != std::string::npos;
    }

private:
    std::atomic<pid_t> mKernelThread{0};
    bool mResult = false;
    std::thread mThread;
};

/// Returns the target of a descriptor of this process, as a stub records it.
inline std::string descriptorText(int number) {
    char target[PATH_MAX];
    const std::string path = "/proc/self/fd/" + std::to_string(number);
    const ssize_t length = ::readlink(path.c_str(), target, sizeof(target));
    const char* const modes[] = {" r", " w", " rw"};
    return length < 0 ? ""
                      : std::string(target, static_cast<std::size_t>(length)) +
                            modes[::fcntl(number, F_GETFL) & O_ACCMODE];
}

/// Returns the number that the next descriptor gets: unchanged if none was leaked.
inline int nextDescriptor() {
    const int next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    (void)::close(next);
    return next;
}

inline bool hasChildren() {
    return ::waitpid(-1, nullptr, WNOHANG) >= 0;
}

/// Waits until the only child has exited and returns how, without reaping it.
inline siginfo_t endOfChild() {
    siginfo_t end = {};
    EXPECT_EQ(::waitid(P_ALL, 0, &end, WEXITED | WNOWAIT), 0);
    return end;
}

inline std::vector<std::string> ownEnvironment() {
    std::vector<std::string> texts;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        texts.emplace_back(*entry);
    }
    return texts;
}

/// Returns the priority of a tool at this increment above its caller's.
inline int nicerBy(int more) {
    constexpr int nicest = 19;
    return std::min(nicest, ::getpriority(PRIO_PROCESS, 0) + more);
}

/// Expects that a formatter ran in the caller's environment, only nicer, with its output in a pipe.
inline void expectFormatterRun(const ToolRun& run) {
    EXPECT_EQ(run.mEnvironment, ownEnvironment());
    EXPECT_EQ(run.mNice, nicerBy(10));
    EXPECT_EQ(run.mDirectory, "/");
    ASSERT_EQ(run.mDescriptors.size(), 3U);
    EXPECT_EQ(run.mDescriptors.at(0), descriptorText(0));
    EXPECT_EQ(run.mDescriptors.at(1).substr(0, 5), "pipe:");
    EXPECT_EQ(run.mDescriptors.at(1).back(), 'w');
    EXPECT_EQ(run.mDescriptors.at(2), descriptorText(2));
    EXPECT_FALSE(hasChildren());
}

}  // namespace tests

#endif
