// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_LEFTOVERS_H
#define KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_LEFTOVERS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>

#include "tests/support/descriptors.h"
#include "tests/support/processview.h"
#include "tests/support/sandbox.h"

namespace tests {

/// Expects the same descriptors and threads at the end of a scope as at its start.
class Leftovers {
public:
    Leftovers() = default;
    ~Leftovers() {
        // A joined thread may stay in the kernel's list for a moment; a thread whose
        // lookup is no longer needed may take longer.
        EXPECT_TRUE(eventually([this] { return threadIds() == mThreads; }));
        EXPECT_EQ(mDescriptors, openDescriptors());
    }
    Leftovers(const Leftovers&) = delete;
    Leftovers& operator=(const Leftovers&) = delete;

private:
    static std::set<pid_t> threadsOfOwn() {
        // The thread sanitizer starts its own thread with the first one, which must have exited.
        std::atomic<pid_t> first{0};
        std::thread([&first] { first = ::gettid(); }).join();
        (void)eventually([&first] { return threadIds().count(first) == 0; });
        return threadIds();
    }

    std::set<int> mDescriptors = openDescriptors();
    std::set<pid_t> mThreads = threadsOfOwn();
};

}  // namespace tests

#endif
