// SPDX-License-Identifier: MIT
//
// The queue and the lifetime of the chained fetcher, with one entry held during its fetch.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "System/protocols/http/sysChainFetcher.h"
#include "tests/support/failingcalls.h"
#include "tests/support/outputlevel.h"
#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/chainrecord.h"
#include "tests/unit/System/protocols/http/leftovers.h"

using namespace tests;

namespace {

/// A document whose body is the requested path, such as "/3".
Script echo(const std::string& request) {
    const std::size_t begin = sizeof("GET ") - 1;
    const std::string path = request.substr(begin, request.find(' ', begin) - begin);
    return Script().send("HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(path.size()) +
                         "\r\n\r\n" + path);
}

/// The worker's pauses of 10 ms, which a test can extend.
class Pauses {
public:
    Pauses() {
        failingcalls::before(failingcalls::Call::eNanosleep, [this] { pass(); });
    }
    ~Pauses() { letAll(); }

    void hold() { mAllowed = 0; }
    void letOne() { ++mAllowed; }
    void letAll() { mAllowed = kAll; }
    /// Waits until the worker is in its nth pause.
    bool awaitHeld(int nth) const {
        return eventually([&] { return mBegun >= nth; });
    }

private:
    static constexpr int kAll = INT_MAX;

    void pass() {
        const int nth = ++mBegun;
        (void)eventually([&] { return mAllowed >= nth; });
    }

    std::atomic<int> mAllowed{kAll};
    std::atomic<int> mBegun{0};
};

class SysChainFetcherQueueTest : public testing::Test {
protected:
    SysChainFetcherQueueTest() {
        mServer.answer(echo);
        mFetcher->setCallback(ChainRecord::callback, &mRecord);
    }

    void push(unsigned id) { mFetcher->pushUrl(id, mServer.url("/" + std::to_string(id)).c_str()); }
    /// Queues the first entry; its fetch stops before its reply.
    void pushStalled() {
        mServer.expect(
            Script().readRequest().stall().send("HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\n/0"));
        push(0);
        ASSERT_TRUE(mServer.awaitStalled(1));
    }
    /// Runs a function on its own thread. Returns whether it waits for the fetcher.
    bool blocks(std::function<void()> function) {
        mCaller = std::thread([this, function = std::move(function)] {
            mCallerId = ::gettid();
            function();
            mReturned = true;
        });
        return eventually([this] { return mCallerId != 0 && sleepsInFutex(mCallerId); }) &&
               !mReturned;
    }
    void release() {
        mRecord.letGo();
        mPauses.letAll();
        mServer.releaseAll();
        if (mCaller.joinable()) {
            mCaller.join();
        }
    }
    void TearDown() override { release(); }

    const OutputLevel mQuiet{0};
    const Leftovers mLeftovers;
    const failingcalls::Scope mCalls;
    ScriptedServer mServer;
    ChainRecord mRecord;
    Pauses mPauses;
    std::unique_ptr<sysChainFetcher> mFetcher = std::make_unique<sysChainFetcher>();
    std::thread mCaller;
    std::atomic<pid_t> mCallerId{0};
    std::atomic<bool> mReturned{false};
};

TEST_F(SysChainFetcherQueueTest, DeliversInTheOrderOfTheCalls) {
    for (const unsigned id : {3U, 1U, 2U, 2U}) {
        push(id);
    }
    ASSERT_TRUE(mRecord.await(4));
    EXPECT_EQ("3 ok 2, 1 ok 2, 2 ok 2, 2 ok 2", mRecord.sequence());
    EXPECT_EQ("/2", mRecord.data());
}

TEST_F(SysChainFetcherQueueTest, WakesUpForAnEntryThatComesLater) {
    push(1);
    ASSERT_TRUE(mRecord.await(1));
    push(2);
    ASSERT_TRUE(mRecord.await(2));
    EXPECT_EQ("1 ok 2, 2 ok 2", mRecord.sequence());
}

TEST_F(SysChainFetcherQueueTest, CopiesTheAddress) {
    std::string url = mServer.url("/1");
    pushStalled();
    ASSERT_TRUE(blocks([this, &url] {
        mFetcher->pushUrl(1, url.c_str());
        url.back() = '2';
    }));
    release();
    ASSERT_TRUE(mRecord.await(2));
    EXPECT_EQ("/1", mRecord.data());
}

TEST_F(SysChainFetcherQueueTest, PushingDuringAFetchBlocksAndIsDeliveredAfterwards) {
    pushStalled();
    EXPECT_TRUE(blocks([this] {
        push(5);
        push(6);
    }));
    EXPECT_EQ("", mRecord.sequence());
    release();
    ASSERT_TRUE(mRecord.await(3));
    EXPECT_EQ("0 ok 2, 5 ok 2, 6 ok 2", mRecord.sequence());
}

TEST_F(SysChainFetcherQueueTest, PushingDuringACallbackBlocks) {
    mRecord.hold();
    push(1);
    ASSERT_TRUE(mRecord.awaitHeld());
    EXPECT_TRUE(blocks([this] { push(2); }));
    release();
    ASSERT_TRUE(mRecord.await(2));
    EXPECT_EQ("1 ok 2, 2 ok 2", mRecord.sequence());
}

TEST_F(SysChainFetcherQueueTest, FlushingDuringAFetchDropsOnlyWhatWaits) {
    mPauses.hold();
    push(1);
    ASSERT_TRUE(mPauses.awaitHeld(1));
    for (const unsigned id : {2U, 3U, 4U}) {
        push(id);
    }
    mServer.expect(
        Script().readRequest().stall().send("HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\n/2"));
    mPauses.letOne();
    ASSERT_TRUE(mServer.awaitStalled(1));
    EXPECT_TRUE(blocks([this] { mFetcher->flush(); }));
    mServer.releaseAll();
    mCaller.join();
    ASSERT_TRUE(mPauses.awaitHeld(2));
    push(9);
    mPauses.letAll();
    ASSERT_TRUE(mRecord.await(3));
    EXPECT_EQ("1 ok 2, 2 ok 2, 9 ok 2", mRecord.sequence());
}

TEST_F(SysChainFetcherQueueTest, WhatWaitsIsDroppedByTheDestruction) {
    mPauses.hold();
    push(1);
    ASSERT_TRUE(mPauses.awaitHeld(1));
    push(2);
    push(3);
    // The lock is free: the destructor stops the worker, and then waits for it.
    EXPECT_TRUE(blocks([this] { mFetcher.reset(); }));
    mPauses.letAll();
    mCaller.join();
    EXPECT_EQ("1 ok 2", mRecord.sequence());
    EXPECT_EQ(1, mServer.connections());
}

TEST_F(SysChainFetcherQueueTest, PausesAfterEachFailedAttemptAndEachEntry) {
    mServer.answer([](const std::string&) { return Script().reset(); });
    mPauses.hold();
    push(1);
    for (int pause = 1; pause <= 4; ++pause) {
        ASSERT_TRUE(mPauses.awaitHeld(pause));
        EXPECT_EQ(pause, mServer.connections());
        EXPECT_EQ(0, mRecord.count());
        mPauses.letOne();
    }
    ASSERT_TRUE(mPauses.awaitHeld(5));
    EXPECT_EQ("1 failed 0", mRecord.sequence());
    EXPECT_EQ(4, mServer.connections());
}

TEST_F(SysChainFetcherQueueTest, FlushingAnEmptyQueueDoesNothing) {
    mFetcher->flush();
    push(1);
    ASSERT_TRUE(mRecord.await(1));
    EXPECT_EQ("1 ok 2", mRecord.sequence());
}

TEST_F(SysChainFetcherQueueTest, ChangingTheCallbackDuringAFetchBlocks) {
    ChainRecord other;
    pushStalled();
    EXPECT_TRUE(blocks([this, &other] {
        mFetcher->setCallback(ChainRecord::callback, &other);
        push(1);
    }));
    release();
    ASSERT_TRUE(other.await(1));
    EXPECT_EQ("0 ok 2", mRecord.sequence());
    EXPECT_EQ("1 ok 2", other.sequence());
    mFetcher.reset();
}

TEST_F(SysChainFetcherQueueTest, WithoutACallbackAnEntryIsFetchedInSilence) {
    mFetcher->setCallback(nullptr, nullptr);
    push(1);
    ASSERT_TRUE(mServer.awaitConnections(1));
    ASSERT_TRUE(mServer.awaitPeerEnd(0));
    mFetcher->setCallback(ChainRecord::callback, &mRecord);
    push(2);
    ASSERT_TRUE(mRecord.await(1));
    EXPECT_EQ("2 ok 2", mRecord.sequence());
    EXPECT_EQ(2, mServer.connections());
}

TEST_F(SysChainFetcherQueueTest, DestructionWaitsForTheDeliveryAndDropsWhatWaits) {
    mRecord.hold();
    push(1);
    ASSERT_TRUE(mRecord.awaitHeld());
    ASSERT_TRUE(blocks([this] { mFetcher.reset(); }));
    EXPECT_EQ(0, mRecord.count());
    release();
    EXPECT_EQ(1, mRecord.count());
    EXPECT_EQ("1 ok 2", mRecord.sequence());
}

TEST_F(SysChainFetcherQueueTest, DestructionDuringAFetchWaitsForItsDelivery) {
    pushStalled();
    ASSERT_TRUE(blocks([this] { mFetcher.reset(); }));
    EXPECT_EQ("", mRecord.sequence());
    release();
    EXPECT_EQ("0 ok 2", mRecord.sequence());
}

TEST_F(SysChainFetcherQueueTest, DestructionWithoutWork) {
    mFetcher.reset();
    EXPECT_EQ("", mRecord.sequence());
}

TEST_F(SysChainFetcherQueueTest, DestructionAfterAFetch) {
    push(1);
    ASSERT_TRUE(mRecord.await(1));
    mFetcher.reset();
    EXPECT_EQ("1 ok 2", mRecord.sequence());
    EXPECT_TRUE(mServer.awaitIdle());
}

TEST_F(SysChainFetcherQueueTest, AConnectionIsClosedBeforeItsDocumentIsDelivered) {
    mRecord.hold();
    push(1);
    ASSERT_TRUE(mRecord.awaitHeld());
    EXPECT_TRUE(mServer.awaitPeerEnd(0));
}

TEST_F(SysChainFetcherQueueTest, WithoutAThreadTheQueueIsKept) {
    failingcalls::fail(failingcalls::Call::ePthreadCreate, EAGAIN);
    {
        // None of these waits for a thread that does not exist.
        sysChainFetcher other;
        other.setCallback(ChainRecord::callback, &mRecord);
        other.pushUrl(1, mServer.url("/1").c_str());
        other.flush();
        other.pushUrl(2, mServer.url("/2").c_str());
    }
    EXPECT_EQ("", mRecord.sequence());
    EXPECT_EQ(0, mServer.connections());
}

TEST_F(SysChainFetcherQueueTest, ManyAtOnce) {
    constexpr unsigned kMany = 20;
    constexpr unsigned kEntries = 5;
    std::vector<ChainRecord> records(kMany);
    std::vector<sysChainFetcher> fetchers(kMany);
    for (unsigned i = 0; i < kMany; ++i) {
        fetchers[i].setCallback(ChainRecord::callback, &records[i]);
        for (unsigned id = 1; id <= kEntries; ++id) {
            fetchers[i].pushUrl(id, mServer.url("/1").c_str());
        }
    }
    for (const ChainRecord& record : records) {
        EXPECT_TRUE(record.await(kEntries));
        EXPECT_EQ("1 ok 2, 2 ok 2, 3 ok 2, 4 ok 2, 5 ok 2", record.sequence());
    }
}

}  // namespace
