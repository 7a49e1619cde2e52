// SPDX-License-Identifier: MIT
//
// Host lookups: which thread makes them, how many threads there are, and what a cancelled caller
// leaves behind.
#include "System/protocols/http/hostlookup.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <deque>
#include <string>
#include <utility>

#include "System/protocols/http/sysUrlFetcher.h"
#include "tests/support/inchild.h"
#include "tests/support/outputlevel.h"
#include "tests/unit/System/protocols/http/heldresolver.h"
#include "tests/unit/System/protocols/http/leftovers.h"
#include "tests/unit/System/protocols/http/urlrecord.h"

using namespace tests;
using failingcalls::Call;

namespace {

constexpr int kMostThreads = 8;

/// A thread that looks a host up.
class Caller {
public:
    explicit Caller(std::string host) : mHost(std::move(host)) {
        EXPECT_EQ(0, pthread_create(&mThread, nullptr, run, this));
    }
    ~Caller() {
        if (mThread != 0) {
            join();
        }
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    /// Cancels it and waits until it has exited. Returns whether the cancellation ended it.
    bool cancel() {
        requestCancel();
        return join() == PTHREAD_CANCELED;
    }
    void requestCancel() { EXPECT_EQ(0, pthread_cancel(mThread)); }
    void* join() {
        void* result = nullptr;
        EXPECT_EQ(0, pthread_join(std::exchange(mThread, 0), &result));
        return result;
    }
    bool awaitWaiting() const {
        return eventually([this] { return mId != 0 && sleepsInFutex(mId); });
    }
    /// Valid after its exit.
    bool foundLoopback() const {
        return mResult.mFound && mResult.mFamily == AF_INET &&
               mResult.mAddress.s_addr == htonl(INADDR_LOOPBACK);
    }
    pid_t id() const { return mId; }

private:
    static void* run(void* self) {
        auto* const caller = static_cast<Caller*>(self);
        caller->mId = ::gettid();
        caller->mResult = http::lookUpHost(caller->mHost);
        return nullptr;
    }

    std::string mHost;
    pthread_t mThread = 0;
    std::atomic<pid_t> mId{0};
    http::HostLookup mResult;
};

std::string held(int number) {
    return "held" + std::to_string(number);
}

/// Starts as many callers as the maximum of threads, each with its own host.
void fillThreads(std::deque<Caller>& callers) {
    for (int number = 0; number < kMostThreads; ++number) {
        callers.emplace_back(held(number));
    }
}

TEST(HostLookup, DigitsAndDotsAreAskedInTheCallersThread) {
    const HeldResolver resolver;
    for (const char* host : {"127.0.0.1", "127.1", "2130706433", "0177.0.0.01", "1.2.3.4.5"}) {
        EXPECT_TRUE(http::lookUpHost(host).mFound);
        EXPECT_EQ(::gettid(), resolver.asker(host)) << host;
    }
}

TEST(HostLookup, EveryOtherSpellingIsAskedInAnotherThread) {
    const Leftovers leftovers;
    const HeldResolver resolver;
    for (const char* host : {"localhost", "0x7f.0.0.1", "0x7f000001", "127.0.0.1.", "127.0.0.1 ",
                             ".1", "127.0.0.1x", "", "1_1"}) {
        EXPECT_TRUE(http::lookUpHost(host).mFound);
        EXPECT_NE(0, resolver.asker(host)) << host;
        EXPECT_NE(::gettid(), resolver.asker(host)) << host;
    }
}

TEST(HostLookup, AThreadTakesNoSignals) {
    const Leftovers leftovers;
    const failingcalls::Scope scope;
    std::atomic<bool> blocked{false};
    failingcalls::before(Call::eGethostbyname, [&] {
        sigset_t mask;
        (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        blocked = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGUSR1) == 1;
    });
    (void)http::lookUpHost("localhost");
    EXPECT_TRUE(blocked);
    sigset_t mask;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(0, sigismember(&mask, SIGTERM));
}

TEST(HostLookup, ACancelledCallerDoesNotWait) {
    const Leftovers leftovers;
    HeldResolver resolver;
    Caller caller("held");
    ASSERT_TRUE(resolver.awaitEntered(1));
    EXPECT_TRUE(caller.cancel());
}

TEST(HostLookup, EqualHostsShareOneQuestion) {
    const Leftovers leftovers;
    HeldResolver resolver;
    std::deque<Caller> callers;
    for (int i = 0; i < 20; ++i) {
        callers.emplace_back("held");
        ASSERT_TRUE(callers.back().awaitWaiting());
    }
    EXPECT_TRUE(callers.front().cancel());
    EXPECT_TRUE(callers.back().cancel());
    resolver.letGo();
    for (std::size_t i = 1; i + 1 < callers.size(); ++i) {
        EXPECT_EQ(nullptr, callers[i].join());
        EXPECT_TRUE(callers[i].foundLoopback());
    }
    EXPECT_EQ(1, resolver.entered());
    // Answers are not cached.
    EXPECT_TRUE(http::lookUpHost("held").mFound);
    EXPECT_EQ(2, resolver.entered());
}

TEST(HostLookup, MoreHostsThanThreadsWaitAndAreAsked) {
    const Leftovers leftovers;
    HeldResolver resolver;
    std::deque<Caller> callers;
    fillThreads(callers);
    ASSERT_TRUE(resolver.awaitEntered(kMostThreads));
    for (int number = kMostThreads; number < 3 * kMostThreads; ++number) {
        callers.emplace_back(held(number));
        ASSERT_TRUE(callers.back().awaitWaiting());
    }
    EXPECT_EQ(kMostThreads, resolver.entered());
    resolver.letGo();
    for (Caller& caller : callers) {
        EXPECT_EQ(nullptr, caller.join());
        EXPECT_TRUE(caller.foundLoopback());
    }
    EXPECT_EQ(3 * kMostThreads, resolver.entered());
}

TEST(HostLookup, AHostThatNobodyWaitsForIsNotAsked) {
    const Leftovers leftovers;
    HeldResolver resolver;
    std::deque<Caller> callers;
    fillThreads(callers);
    ASSERT_TRUE(resolver.awaitEntered(kMostThreads));
    Caller cancelled("held-late");
    ASSERT_TRUE(cancelled.awaitWaiting());
    EXPECT_TRUE(cancelled.cancel());
    resolver.letGo();
    callers.clear();
    EXPECT_EQ(kMostThreads, resolver.entered());
    EXPECT_EQ(0, resolver.asker("held-late"));
}

TEST(HostLookup, SixHundredCancelledFetchesLeaveEightThreads) {
    const OutputLevel quiet(0);
    const Leftovers leftovers;
    HeldResolver resolver;
    const std::size_t before = threadIds().size();
    UrlRecord record;
    sysUrlFetcher fetcher;
    fetcher.setCallback(UrlRecord::callback, &record);
    for (int number = 0; number < 600; ++number) {
        ASSERT_EQ(0, fetcher.setUrl(("http://" + held(number) + "/").c_str()));
        if (number < kMostThreads) {
            ASSERT_TRUE(resolver.awaitEntered(number + 1));
        }
        fetcher.cancelFetch();
    }
    EXPECT_EQ(600, record.count(eUrlFetchCancelled));
    EXPECT_TRUE(eventually([&] { return threadIds().size() <= before + kMostThreads; }));
    EXPECT_EQ(kMostThreads, resolver.entered());
    resolver.letGo();
    EXPECT_TRUE(http::lookUpHost("localhost").mFound);
    EXPECT_EQ(kMostThreads + 1, resolver.entered());
}

TEST(HostLookup, AThreadThatCannotBeMadeIsTriedAgain) {
    const Leftovers leftovers;
    const HeldResolver resolver;
    failingcalls::fail(Call::ePthreadCreate, EAGAIN);
    EXPECT_TRUE(http::lookUpHost("localhost").mFound);
    EXPECT_NE(::gettid(), resolver.asker("localhost"));
    EXPECT_EQ(2, failingcalls::count(Call::ePthreadCreate));
}

TEST(HostLookup, WithoutAnyThreadTheCallerAsks) {
    const HeldResolver resolver;
    failingcalls::failAll(Call::ePthreadCreate, EAGAIN);
    EXPECT_TRUE(http::lookUpHost("localhost").mFound);
    EXPECT_EQ(::gettid(), resolver.asker("localhost"));
    int state = PTHREAD_CANCEL_DISABLE;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    EXPECT_EQ(PTHREAD_CANCEL_ENABLE, state);
}

TEST(HostLookup, ACallerThatWaitsForAThreadCanBeCancelled) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP()
        << "the thread sanitizer loses sight of a thread that is cancelled while it sleeps";
#endif
    const Leftovers leftovers;
    const HeldResolver resolver;
    const pid_t own = ::gettid();
    std::atomic<bool> waits{false};
    std::atomic<bool> goOn{false};
    failingcalls::before(Call::ePthreadCreate, [&] {
        if (::gettid() != own) {
            failingcalls::fail(Call::ePthreadCreate, EAGAIN, 0);  // this call
        }
    });
    failingcalls::before(Call::eNanosleep, [&] {
        waits = true;
        (void)eventually([&] { return goOn.load(); });
    });
    Caller caller("localhost");
    ASSERT_TRUE(eventually([&] { return waits.load(); }));
    caller.requestCancel();
    goOn = true;
    EXPECT_EQ(PTHREAD_CANCELED, caller.join());
    EXPECT_EQ(0, resolver.entered());
}

TEST(HostLookup, AChildAfterForkLooksUp) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer starts no threads in a child of a threaded process";
#endif
    const Leftovers leftovers;
    HeldResolver resolver;
    std::deque<Caller> callers;
    fillThreads(callers);
    ASSERT_TRUE(resolver.awaitEntered(kMostThreads));
    Caller waiting("held-late");
    ASSERT_TRUE(waiting.awaitWaiting());
    EXPECT_EQ("", inChild([&] {
                  Findings findings;
                  findings.expect(http::lookUpHost("localhost").mFound, "found");
                  findings.expect(resolver.asker("localhost") != ::gettid(), "another thread");
                  return findings.text();
              }));
    resolver.letGo();
    EXPECT_EQ(nullptr, waiting.join());
    EXPECT_TRUE(waiting.foundLoopback());
}

}  // namespace
