// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_HELDRESOLVER_H
#define KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_HELDRESOLVER_H

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "tests/support/failingcalls.h"
#include "tests/support/processview.h"
#include "tests/support/sandbox.h"

namespace tests {

/// A resolver that holds every lookup of a host whose name starts with "held" until letGo(), and
/// answers each host with 127.0.0.1. Contains a failingcalls::Scope; its destructor waits until the
/// lookup threads have exited.
class HeldResolver {
public:
    HeldResolver() {
        failingcalls::answerLookup(
            [this](const failingcalls::Lookup& lookup) { return answer(lookup); });
    }
    ~HeldResolver() {
        letGo();
        EXPECT_TRUE(eventually([this] { return mLeft == mEntered && threadIds() == mThreads; }));
    }
    HeldResolver(const HeldResolver&) = delete;
    HeldResolver& operator=(const HeldResolver&) = delete;

    void letGo() { mGo = true; }
    int entered() const { return mEntered; }
    bool awaitEntered(int count) const {
        return eventually([&] { return mEntered >= count; });
    }
    /// Returns the thread that last looked a host up; 0 for none.
    pid_t asker(const std::string& host) const {
        const std::lock_guard<std::mutex> lock(mLock);
        const auto found = mAskers.find(host);
        return found != mAskers.end() ? found->second : 0;
    }

private:
    int answer(const failingcalls::Lookup& lookup) {
        const std::string host = lookup.mName;
        {
            const std::lock_guard<std::mutex> lock(mLock);
            mAskers[host] = ::gettid();
        }
        ++mEntered;
        if (host.rfind("held", 0) == 0) {
            (void)eventually([this] { return mGo.load(); });
        }
        // The caller may have returned, but its name must still exist.
        EXPECT_EQ(host, lookup.mName);
        fill(lookup);
        ++mLeft;
        return 0;
    }

    /// The answer is in the caller's buffer, as with the original function.
    static void fill(const failingcalls::Lookup& lookup) {
        auto* const list = reinterpret_cast<char**>(lookup.mBuffer);
        list[0] = lookup.mBuffer + 2 * sizeof(char*);
        list[1] = nullptr;
        const in_addr_t address = htonl(INADDR_LOOPBACK);
        std::memcpy(list[0], &address, sizeof(address));
        *lookup.mEntry = hostent();
        lookup.mEntry->h_addrtype = AF_INET;
        lookup.mEntry->h_length = sizeof(address);
        lookup.mEntry->h_addr_list = list;
        *lookup.mFound = lookup.mEntry;
    }

    const failingcalls::Scope mScope;
    const std::set<pid_t> mThreads = threadIds();
    mutable std::mutex mLock;
    std::map<std::string, pid_t> mAskers;  // guarded by mLock
    std::atomic<int> mEntered{0};
    std::atomic<int> mLeft{0};
    std::atomic<bool> mGo{false};
};

}  // namespace tests

#endif
