// SPDX-License-Identifier: MIT
//
// A download that is cancelled, replaced or destroyed at every stage, and the starts that keep the
// lock. No stage is awaited by time: the server and the kernel report when it is reached.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "System/protocols/http/sysUrlFetcher.h"
#include "tests/support/inchild.h"
#include "tests/support/outputlevel.h"
#include "tests/support/scriptedserver.h"
#include "tests/unit/System/protocols/http/leftovers.h"
#include "tests/unit/System/protocols/http/urlrecord.h"

using namespace tests;

namespace {

std::string ok(const std::string& fields) {
    return "HTTP/1.0 200 OK\r\n" + fields + "\r\n";
}

/// Returns a thread that exists now and did not before; 0 for none.
pid_t newThread(const std::set<pid_t>& before) {
    for (const pid_t thread : threadIds()) {
        if (before.count(thread) == 0) {
            return thread;
        }
    }
    return 0;
}

/// How a running download is ended.
enum class End { eCancel, eKill, eReplace, eDestroy };

struct StageCase {
    const char* mName;
    Script mScript;
    std::string mSequence;  ///< callbacks so far
};

void PrintTo(const StageCase& stage, std::ostream* out) {
    *out << stage.mName;
}

class SysUrlFetcherStages : public testing::Test {
protected:
    void start(const std::string& url) {
        mFetcher->setCallback(UrlRecord::callback, &mRecord);
        ASSERT_EQ(0, mFetcher->setUrl(url.c_str()));
    }
    void stop(End end) {
        switch (end) {
            case End::eCancel:
                mFetcher->cancelFetch();
                mFetcher->waitTillDone();
                break;
            case End::eKill:
                mFetcher->killThread();
                mFetcher->killThread();
                break;
            case End::eReplace:
                ASSERT_EQ(0, mFetcher->setUrl("none"));
                mFetcher->waitTillDone();
                break;
            case End::eDestroy:
                mFetcher.reset();
                break;
        }
    }
    static std::string after(const std::string& sequence, End end) {
        return sequence + (end == End::eReplace ? ", 1 0/0, 2 0/0" : "");
    }
    /// Starts a thread that stops the download. Returns whether it waits for the callback.
    bool stopWhileHeld(End end) {
        mStopper = std::thread([this, end] {
            mStopperId = ::gettid();
            stop(end);
        });
        return eventually([this] { return mStopperId != 0 && sleepsInFutex(mStopperId); });
    }

    /// Waits for the download, as the function of a thread.
    static void* wait(void* self) {
        auto* const test = static_cast<SysUrlFetcherStages*>(self);
        test->mStopperId = ::gettid();
        test->mFetcher->waitTillDone();
        return nullptr;
    }
    void TearDown() override {
        mRecord.letGo();
        if (mStopper.joinable()) {
            mStopper.join();
        }
    }

    const OutputLevel mQuiet{0};
    const Leftovers mLeftovers;
    ScriptedServer mServer;
    UrlRecord mRecord;
    std::unique_ptr<sysUrlFetcher> mFetcher = std::make_unique<sysUrlFetcher>();
    std::thread mStopper;
    std::atomic<pid_t> mStopperId{0};
};

class SysUrlFetcherStageTest : public SysUrlFetcherStages,
                               public testing::WithParamInterface<std::tuple<StageCase, End>> {};

TEST_P(SysUrlFetcherStageTest, IsToldOnceThatItWasCancelled) {
    const auto& [stage, end] = GetParam();
    const std::set<pid_t> before = threadIds();
    mServer.expect(stage.mScript);
    start(mServer.url());
    ASSERT_TRUE(mServer.awaitStalled(1));
    ASSERT_TRUE(eventually([&] {
        return mRecord.sequence() == stage.mSequence && sleepsInReceive(newThread(before));
    }));
    stop(end);
    EXPECT_EQ(after(stage.mSequence + (stage.mSequence.empty() ? "" : ", ") + "2 0/0", end),
              mRecord.sequence());
    EXPECT_TRUE(mServer.awaitPeerEnd(0));
}

const StageCase kStages[] = {
    {"AheadOfTheHeader", Script().readRequest().stall(), ""},
    {"InTheStatusLine", Script().readRequest().send("HTTP/1.0 2").stall(), ""},
    {"InTheHeader", Script().readRequest().send("HTTP/1.0 200 OK\r\nContent-Le").stall(), ""},
    {"AtTheEndOfTheHeader", Script().readRequest().send("HTTP/1.0 200 OK\r\n\r").stall(), ""},
    {"AheadOfTheBody", Script().readRequest().send(ok("Content-Length: 10\r\n")).stall(), "3 0/10"},
    {"InTheBody", Script().readRequest().send(ok("Content-Length: 10\r\n") + "12345").stall(),
     "3 0/10, 4 5/10"},
    {"BehindAllOfTheBody", Script().readRequest().send(ok("") + "12345").stall(), "3 0/0, 4 5/0"},
};

std::string nameOf(End end) {
    const char* const names[] = {"Cancelled", "Killed", "Replaced", "Destroyed"};
    return names[static_cast<int>(end)];
}

const auto kEnds = testing::Values(End::eCancel, End::eKill, End::eReplace, End::eDestroy);

INSTANTIATE_TEST_SUITE_P(Stages, SysUrlFetcherStageTest,
                         testing::Combine(testing::ValuesIn(kStages), kEnds),
                         [](const auto& stage) {
                             return std::get<0>(stage.param).mName +
                                    nameOf(std::get<1>(stage.param));
                         });

class SysUrlFetcherEndTest : public SysUrlFetcherStages, public testing::WithParamInterface<End> {};

INSTANTIATE_TEST_SUITE_P(Ends, SysUrlFetcherEndTest, kEnds,
                         [](const auto& end) { return nameOf(end.param); });

TEST_P(SysUrlFetcherEndTest, WhileItConnects) {
    const DeadPort port(DeadPort::eFull);
    const std::set<pid_t> before = threadIds();
    start(port.url());
    ASSERT_TRUE(eventually([&] { return sleepsInConnect(newThread(before)); }));
    stop(GetParam());
    EXPECT_EQ(after("2 0/0", GetParam()), mRecord.sequence());
}

TEST_P(SysUrlFetcherEndTest, AtOnce) {
    mServer.always(Script().readRequest().stall());
    start(mServer.url());
    stop(GetParam());
    EXPECT_EQ(after("2 0/0", GetParam()), mRecord.sequence());
}

TEST_P(SysUrlFetcherEndTest, AfterItsOwnEnd) {
    mServer.expect(replyWith(ok("Content-Length: 5\r\n") + "12345"));
    start(mServer.url());
    ASSERT_TRUE(mRecord.await(eUrlFetchDone));
    stop(GetParam());
    EXPECT_EQ(after("3 0/5, 4 5/5, 5 5/5", GetParam()), mRecord.sequence());
}

TEST_P(SysUrlFetcherEndTest, AfterItWasWaitedFor) {
    mServer.expect(replyWith(ok("Content-Length: 5\r\n") + "12345"));
    start(mServer.url());
    mFetcher->waitTillDone();
    stop(GetParam());
    EXPECT_EQ(after("3 0/5, 4 5/5, 5 5/5", GetParam()), mRecord.sequence());
}

struct HeldCase {
    const char* mName;
    sysUrlFetcherCode mCode;
    std::string mReply;
    std::string mSequence;
};

void PrintTo(const HeldCase& held, std::ostream* out) {
    *out << held.mName;
}

class SysUrlFetcherHeldTest : public SysUrlFetcherStages,
                              public testing::WithParamInterface<std::tuple<HeldCase, End>> {};

TEST_P(SysUrlFetcherHeldTest, WaitsForTheCallback) {
    const auto& [held, end] = GetParam();
    mServer.expect(replyWith(held.mReply));
    mRecord.holdAt(held.mCode);
    start(mServer.url());
    ASSERT_TRUE(mRecord.awaitHeld());
    const std::string before = mRecord.sequence();
    EXPECT_TRUE(stopWhileHeld(end));
    EXPECT_EQ(before, mRecord.sequence());
    mRecord.letGo();
    mStopper.join();
    EXPECT_EQ(after(held.mSequence, end), mRecord.sequence());
}

const std::string kFive = ok("Content-Length: 5\r\n") + "12345";

// A download that has ended is not cancelled any more.
const HeldCase kHeld[] = {
    {"OnTheHeader", eUrlFetchHeader, kFive, "3 0/5, 2 0/0"},
    {"OnAPiece", eUrlFetchData, ok("") + "12345", "3 0/0, 4 5/0, 2 0/0"},
    {"OnTheLastPiece", eUrlFetchData, kFive, "3 0/5, 4 5/5, 5 5/5"},
    {"AtTheEnd", eUrlFetchDone, kFive, "3 0/5, 4 5/5, 5 5/5"},
    {"OnAFailedOpening", eUrlFetchOpenFailed, "", "1 0/0, 2 0/0"},
    {"OnTheCancellation", eUrlFetchCancelled, "", "1 0/0, 2 0/0"},
};

INSTANTIATE_TEST_SUITE_P(Callbacks, SysUrlFetcherHeldTest,
                         testing::Combine(testing::ValuesIn(kHeld), kEnds), [](const auto& held) {
                             return std::get<0>(held.param).mName + nameOf(std::get<1>(held.param));
                         });

TEST_F(SysUrlFetcherStages, ANewAddressReplacesARunningDownload) {
    mServer.expect(Script().readRequest().send(ok("Content-Length: 9\r\n") + "123").stall());
    mServer.expect(replyWith(kFive));
    start(mServer.url("/first"));
    ASSERT_TRUE(mRecord.await(eUrlFetchData));
    ASSERT_EQ(0, mFetcher->setUrl(mServer.url("/second").c_str()));
    mFetcher->waitTillDone();
    EXPECT_EQ("3 0/9, 4 3/9, 2 0/0, 3 0/5, 4 5/5, 5 5/5", mRecord.sequence());
    EXPECT_EQ(0U, mServer.request(1).find("GET /second "));
}

TEST_F(SysUrlFetcherStages, AStoppedDownloadIsNotCancelledASecondTime) {
    mServer.expect(replyWith(kFive));
    mRecord.stopAt(eUrlFetchData);
    mRecord.holdAt(eUrlFetchCancelled);
    start(mServer.url());
    ASSERT_TRUE(mRecord.awaitHeld());
    EXPECT_TRUE(stopWhileHeld(End::eCancel));
    mRecord.letGo();
    mStopper.join();
    EXPECT_EQ("3 0/5, 4 5/5, 2 0/0", mRecord.sequence());
}

TEST_F(SysUrlFetcherStages, AWaiterThatIsCancelledLeavesTheWorkerToBeStopped) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer loses count of a thread that is cancelled while it joins";
#endif
    mServer.expect(Script().readRequest().stall());
    start(mServer.url());
    ASSERT_TRUE(mServer.awaitStalled(1));
    pthread_t waiter{};
    ASSERT_EQ(0, pthread_create(&waiter, nullptr, wait, this));
    ASSERT_TRUE(eventually([this] { return mStopperId != 0 && sleepsInFutex(mStopperId); }));
    ASSERT_EQ(0, pthread_cancel(waiter));
    void* result = nullptr;
    ASSERT_EQ(0, pthread_join(waiter, &result));
    EXPECT_EQ(PTHREAD_CANCELED, result);
    mFetcher.reset();
    EXPECT_EQ("2 0/0", mRecord.sequence());
}

/// Redirects standard output to a full pipe without a reader.
void blockStandardOutput(Findings& findings) {
    int ends[2] = {-1, -1};
    findings.expect(::pipe2(ends, O_CLOEXEC) == 0, "pipe");
    findings.expect(::fcntl(ends[1], F_SETFL, O_NONBLOCK) == 0, "nonblocking");
    const std::string piece(4096, 'x');
    while (::write(ends[1], piece.data(), piece.size()) > 0) {
    }
    findings.expect(::fcntl(ends[1], F_SETFL, 0) == 0, "blocking");
    (void)std::fflush(stdout);
    findings.expect(::dup2(ends[1], STDOUT_FILENO) == STDOUT_FILENO, "dup2");
    findings.expect(std::setvbuf(stdout, nullptr, _IONBF, 0) == 0, "setvbuf");
}

/// Cancels a worker that is blocked in a write to standard output.
std::string cancelAtBlockedOutput() {
    constexpr unsigned tooLong = 60;  // seconds, after which SIGALRM ends the process
    Findings findings;
    const OutputLevel quiet(0);
    ScriptedServer server;
    server.expect(Script().readRequest().send("HTTP/1.0 200 OK\r\nnothing\r\n"));
    UrlRecord record;
    blockStandardOutput(findings);
    const std::set<pid_t> before = threadIds();
    sysUrlFetcher fetcher;
    fetcher.setCallback(UrlRecord::callback, &record);
    findings.expect(fetcher.setUrl(server.url().c_str()) == 0, "setUrl");
    findings.expect(eventually([&] { return sleepsInWrite(newThread(before)); }), "it writes");
    (void)::alarm(tooLong);
    fetcher.cancelFetch();
    (void)::alarm(0);
    findings.expect(record.sequence() == "2 0/0", "cancelled once");
    return findings.text();
}

TEST(SysUrlFetcherOutputTest, ACancellationDoesNotWaitForABlockedStandardOutput) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer starts no threads in a child of a threaded process";
#endif
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer keeps the marks of frames that a cancellation has left";
#endif
    EXPECT_EQ("", inChild(cancelAtBlockedOutput));
}

/// 200 at once, of which some end by themselves and the others are cancelled.
TEST(SysUrlFetcherCrowdTest, TwoHundredAtOnce) {
    constexpr std::size_t kMany = 200;
    const OutputLevel quiet(0);
    const Leftovers leftovers;
    ScriptedServer server;
    server.answer([](const std::string& request) {
        const Script script = Script().send(ok("Content-Length: 5\r\n") + "123").stall();
        return request.find("GET /ends") == 0 ? Script(script).send("45") : script;
    });
    std::vector<UrlRecord> records(kMany);
    std::vector<sysUrlFetcher> fetchers(kMany);
    for (std::size_t i = 0; i < kMany; ++i) {
        fetchers[i].setCallback(UrlRecord::callback, &records[i]);
        ASSERT_EQ(0, fetchers[i].setUrl(server.url(i % 2 == 0 ? "/ends" : "/stays").c_str()));
    }
    ASSERT_TRUE(server.awaitStalled(kMany));
    for (std::size_t i = 1; i < kMany; i += 2) {
        ASSERT_TRUE(records[i].await(eUrlFetchData));
        fetchers[i].cancelFetch();
        EXPECT_EQ("3 0/5, 4 3/5, 2 0/0", records[i].sequence());
    }
    server.releaseAll();
    for (std::size_t i = 0; i < kMany; i += 2) {
        fetchers[i].waitTillDone();
        EXPECT_EQ("3 0/5, 4 5/5, 5 5/5", records[i].sequence());
        EXPECT_EQ("12345", records[i].body());
    }
}

/// Returns whether a thread in killThread() blocks forever: the worker has exited, and the thread
/// sleeps.
std::string killBlocks(const char* url, bool withCallback, const char* expected) {
    const OutputLevel quiet(0);
    auto* const fetcher = new sysUrlFetcher;
    auto* const record = new UrlRecord;
    const std::set<pid_t> before = threadIds();
    fetcher->setCallback(withCallback ? UrlRecord::callback : nullptr, record);
    Findings findings;
    findings.expect(fetcher->setUrl(url) == 0, "no worker");
    findings.expect(eventually([&] { return threadIds() == before; }), "the worker stays");
    findings.expect(record->sequence() == expected, "another sequence");
    std::atomic<pid_t> killer{0};
    // Runs until the process exits.
    std::thread([&] {
        killer = ::gettid();
        fetcher->killThread();
    }).detach();
    findings.expect(eventually([&] { return killer != 0 && sleepsInFutex(killer); }),
                    "killThread() goes on");
    return findings.text();
}

TEST(SysUrlFetcherLockTest, KillThreadBlocksAfterAStartWithoutACallback) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer calls the worker a leak that nobody can join any more";
#endif
    EXPECT_EQ("", inChild([] { return killBlocks("http://127.0.0.1/", false, ""); }));
}

TEST(SysUrlFetcherLockTest, KillThreadBlocksAfterAStartWithoutAnAddress) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer calls the worker a leak that nobody can join any more";
#endif
    EXPECT_EQ("", inChild([] { return killBlocks(nullptr, true, "0 0/0"); }));
}

class SysUrlFetcherKeptLockTest : public testing::Test {
protected:
    const Leftovers mLeftovers;
    UrlRecord mRecord;
    sysUrlFetcher mFetcher;
};

TEST_F(SysUrlFetcherKeptLockTest, WaitTillDoneAndKillAfterItWorkWithoutACallback) {
    ASSERT_EQ(0, mFetcher.setUrl("http://127.0.0.1/"));
    mFetcher.waitTillDone();
    mFetcher.waitTillDone();
    // There is no worker, so it does not take the lock.
    mFetcher.killThread();
}

TEST_F(SysUrlFetcherKeptLockTest, WaitTillDoneWorksWithoutAnAddress) {
    mFetcher.setCallback(UrlRecord::callback, &mRecord);
    ASSERT_EQ(0, mFetcher.setUrl(nullptr));
    mFetcher.waitTillDone();
    mFetcher.cancelFetch();
    EXPECT_EQ("0 0/0", mRecord.sequence());
}

TEST_F(SysUrlFetcherKeptLockTest, DestructionWorksWithoutACallback) {
    ASSERT_EQ(0, mFetcher.setUrl("http://127.0.0.1/"));
}

TEST_F(SysUrlFetcherKeptLockTest, DestructionWorksWithoutAnAddress) {
    mFetcher.setCallback(UrlRecord::callback, &mRecord);
    ASSERT_EQ(0, mFetcher.setUrl(nullptr));
    ASSERT_TRUE(mRecord.await(eUrlFetchError));
}

}  // namespace
