// SPDX-License-Identifier: MIT
//
// Records a chained fetcher's deliveries.
#ifndef KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_CHAINRECORD_H
#define KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_CHAINRECORD_H

#include <atomic>
#include <mutex>
#include <string>

#include "tests/support/sandbox.h"

namespace tests {

/// Records the deliveries.
class ChainRecord {
public:
    ~ChainRecord() { letGo(); }

    int count() const { return mCount; }
    bool await(int count) const {
        return eventually([&] { return mCount >= count; });
    }
    /// Returns all deliveries such as "7 ok 1000 text/plain", separated by ", ".
    std::string sequence() const {
        const std::lock_guard<std::mutex> lock(mLock);
        return mSequence;
    }
    /// Returns the data of the last one.
    std::string data() const {
        const std::lock_guard<std::mutex> lock(mLock);
        return mData;
    }
    /// Blocks the next callback until letGo().
    void hold() { mHold = true; }
    bool awaitHeld() const {
        return eventually([this] { return mHeld.load(); });
    }
    void letGo() { mHold = false; }

    static void callback(bool fine, unsigned id, const char* type, char* data, int length,
                         void* user) {
        auto* const record = static_cast<ChainRecord*>(user);
        record->note(fine, id, type, data, length);
        record->mHeld = record->mHold.load();
        (void)eventually([record] { return !record->mHold; });
        ++record->mCount;
    }

private:
    void note(bool fine, unsigned id, const char* type, const char* data, int length) {
        const std::lock_guard<std::mutex> lock(mLock);
        mSequence += (mSequence.empty() ? "" : ", ") + std::to_string(id) +
                     (fine ? " ok " : " failed ") + std::to_string(length) +
                     (*type != '\0' ? " " : "") + type;
        mData.assign(data, static_cast<std::size_t>(length));
    }

    mutable std::mutex mLock;
    std::string mSequence;
    std::string mData;
    std::atomic<int> mCount{0};
    std::atomic<bool> mHold{false};
    std::atomic<bool> mHeld{false};
};

}  // namespace tests

#endif
