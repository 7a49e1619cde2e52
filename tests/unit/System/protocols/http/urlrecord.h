// SPDX-License-Identifier: MIT
//
// Records a URL fetcher's callbacks.
#ifndef KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_URLRECORD_H
#define KESTROVA_TESTS_SYSTEM_PROTOCOLS_HTTP_URLRECORD_H

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "System/protocols/http/sysUrlFetcher.h"
#include "tests/support/sandbox.h"

namespace tests {

/// Records the calls as a text such as "3 0/5000, 4 5000/5000, 5 5000/5000": the codes with
/// received and total. Consecutive pieces are merged; a problem in a call is appended.
class UrlRecord {
public:
    /// Releases the callback if a test fails.
    ~UrlRecord() { letGo(); }

    std::string sequence() const {
        const std::lock_guard<std::mutex> lock(mLock);
        std::string text;
        for (const Entry& entry : mEntries) {
            text += (text.empty() ? "" : ", ") + std::to_string(entry.mCode) + " " +
                    std::to_string(entry.mReceived) + "/" + std::to_string(entry.mTotal) +
                    entry.mProblems;
        }
        return text;
    }
    std::string body() const {
        const std::lock_guard<std::mutex> lock(mLock);
        return mBody;
    }
    int count(sysUrlFetcherCode code) const { return mCounts[code]; }
    /// Returns the thread that called last.
    pid_t worker() const { return mWorker; }

    /// Makes the callback return false for a code.
    void stopAt(sysUrlFetcherCode code) { mStopAt = code; }
    /// Blocks the next callback with this code until letGo().
    void holdAt(sysUrlFetcherCode code) { mHoldAt = code; }
    bool awaitHeld() const {
        return eventually([this] { return mHeld.load(); });
    }
    void letGo() { mHoldAt = kNone; }
    bool await(sysUrlFetcherCode code) const {
        return eventually([&] { return count(code) != 0; });
    }

    static bool callback(sysUrlFetcherCode code, char* data, int length, int received, int total,
                         void* user) {
        auto* const record = static_cast<UrlRecord*>(user);
        record->note(code, data, length, received, total);
        ++record->mCounts[code];
        record->mHeld = record->mHoldAt == code;
        (void)eventually([&] { return record->mHoldAt != code; });
        return record->mStopAt != code;
    }

private:
    static constexpr int kNone = -1;
    static constexpr int kChunk = 2048;

    struct Entry {
        sysUrlFetcherCode mCode;
        int mReceived;
        int mTotal;
        std::string mProblems;
    };

    static bool cancellable() {
        int state = PTHREAD_CANCEL_DISABLE;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        (void)pthread_setcancelstate(state, nullptr);
        return state == PTHREAD_CANCEL_ENABLE;
    }

    void note(sysUrlFetcherCode code, const char* data, int length, int received, int total) {
        const std::lock_guard<std::mutex> lock(mLock);
        mWorker = ::gettid();
        std::string problems;
        if (cancellable()) {
            problems += " (cancellable)";
        }
        if (code == eUrlFetchData) {
            if (data == nullptr || length <= 0 || length > kChunk) {
                problems += " (no piece)";
            } else {
                mBody.append(data, static_cast<std::size_t>(length));
            }
            const int before = mEntries.empty() ? 0 : mEntries.back().mReceived;
            if (received - before != length) {
                problems += " (wrong count)";
            }
        } else if (data != nullptr || length != 0) {
            problems += " (a piece)";
        }
        if (code == eUrlFetchData && !mEntries.empty() && mEntries.back().mCode == code) {
            problems = mEntries.back().mProblems + problems;
            mEntries.pop_back();
        }
        mEntries.push_back({code, received, total, problems});
    }

    mutable std::mutex mLock;
    std::vector<Entry> mEntries;
    std::string mBody;
    std::atomic<int> mCounts[eUrlFetchDone + 1] = {};
    std::atomic<int> mStopAt{kNone};
    std::atomic<int> mHoldAt{kNone};
    std::atomic<bool> mHeld{false};
    std::atomic<pid_t> mWorker{0};
};

}  // namespace tests

#endif
