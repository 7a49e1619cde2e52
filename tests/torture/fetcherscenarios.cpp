// SPDX-License-Identifier: MIT
//
// Both fetchers, with their worker threads.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "System/protocols/http/sysChainFetcher.h"
#include "System/protocols/http/sysUrlFetcher.h"
#include "tests/support/failingcalls.h"
#include "tests/support/processview.h"
#include "tests/support/scriptedserver.h"
#include "tests/torture/scenario.h"

namespace torture {

namespace {

using failingcalls::Exempt;

const std::string kDocument(3000, 'd');

tests::Script documentReply() {
    return tests::replyWith("HTTP/1.0 200 OK\r\nContent-Length: 3000\r\n\r\n" + kDocument);
}

/// The events that a fetcher has reported, as digits.
class Told {
public:
    void add(int code, int length) {
        const std::lock_guard<std::mutex> lock(mLock);
        mCodes += static_cast<char>('0' + code);
        mBytes += length;
        mChanged.notify_all();
    }
    /// Waits for a code, or until no thread of the library is left to report it.
    void await(char code, std::size_t threadsBefore) {
        std::unique_lock<std::mutex> lock(mLock);
        while (mCodes.find(code) == std::string::npos &&
               tests::threadIds().size() > threadsBefore) {
            (void)mChanged.wait_for(lock, std::chrono::milliseconds(2));
        }
    }
    std::string codes() {
        const std::lock_guard<std::mutex> lock(mLock);
        return mCodes;
    }
    int bytes() const { return mBytes; }
    void clear() {
        const std::lock_guard<std::mutex> lock(mLock);
        mCodes.clear();
        mBytes = 0;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::string mCodes;
    int mBytes = 0;
};

enum class Fetch {
    eByName,
    eNoLength,
    eWhole,
    eCancel,
    eStopByResult,
    eRefused,
    eNoCallback,
    eObject
};

class FetcherCase : public Case {
public:
    explicit FetcherCase(Fetch fetch) : mFetch(fetch) {}

    void prepare(World& /*world*/) override {
        mpServer = std::make_unique<tests::ScriptedServer>();
        if (mFetch == Fetch::eCancel) {
            mpServer->always(tests::Script()
                                 .readRequest()
                                 .send("HTTP/1.0 200 OK\r\nContent-Length: 3000\r\n\r\nfirst")
                                 .stall());
        } else {
            mpServer->always(mFetch == Fetch::eNoLength
                                 ? tests::replyWith("HTTP/1.0 200 OK\r\n\r\n" + kDocument)
                                 : documentReply());
        }
        mpDead = std::make_unique<tests::DeadPort>(tests::DeadPort::eRefusing);
        mUrl = mFetch == Fetch::eRefused ? mpDead->url() : mpServer->url();
        if (mFetch == Fetch::eByName) {
            mUrl = "http://peer.example:" + std::to_string(mpServer->port()) + "/";
        }
        mpFetcher = std::make_unique<sysUrlFetcher>();
        if (mFetch != Fetch::eNoCallback) {
            mpFetcher->setCallback(callback, this);
        }
        mThreads = tests::threadIds().size() + 1;  // including the caller
    }

    void act() override {
        if (mFetch == Fetch::eObject) {
            sysUrlFetcher fetcher;
            fetcher.setCallback(callback, this);
            mStarted = fetcher.setUrl(mUrl.c_str()) == 0;
            return;  // the destructor cancels the fetch
        }
        mStarted = mpFetcher->setUrl(mUrl.c_str()) == 0;
        if (mFetch == Fetch::eCancel && mStarted) {
            {
                const Exempt exempt;
                mTold.await('4', mThreads);
            }
            mpFetcher->killThread();
        }
        mpFetcher->waitTillDone();
        mRan = true;
    }

    void settle() override {
        // If the waiting thread was cancelled, the fetch must still be cancelled.
        if (mpFetcher != nullptr && mFetch == Fetch::eCancel && !mRan) {
            mpServer->releaseAll();
            mpFetcher->cancelFetch();
        }
        mpFetcher->waitTillDone();
    }

    void check(Verdict& verdict) override {
        const std::string codes = mTold.codes();
        checkCodes(verdict, codes);
        mpServer->releaseAll();
        mpFetcher->waitTillDone();
        mTold.clear();
        if (mFetch == Fetch::eNoCallback) {
            mpFetcher = nullptr;
            mpFetcher = std::make_unique<sysUrlFetcher>();
        }
        mFetch = Fetch::eWhole;
        tests::ScriptedServer next;
        next.always(documentReply());
        mpFetcher->setCallback(callback, this);
        verdict.expect(mpFetcher->setUrl(next.url().c_str()) == 0, "the next fetch does not start");
        mpFetcher->waitTillDone();
        verdict.expect(mTold.codes().find('5') != std::string::npos &&
                           mTold.bytes() == static_cast<int>(kDocument.size()),
                       "the next fetch ends with " + mTold.codes());
        mpFetcher = nullptr;
    }

private:
    static bool callback(sysUrlFetcherCode code, char*, int length, int, int, void* user) {
        const Exempt exempt;
        auto* const self = static_cast<FetcherCase*>(user);
        self->mTold.add(code, length);
        return self->mFetch != Fetch::eStopByResult || code != eUrlFetchData;
    }

    void checkCodes(Verdict& verdict, const std::string& codes) {
        if (mFetch == Fetch::eNoCallback) {
            verdict.expect(codes.empty(), "codes without a callback");
            return;
        }
        // Header, data, and an end; or no reply.
        std::string rest = codes;
        if (!rest.empty() && rest[0] == '3') {
            rest.erase(0, rest.find_first_not_of('4', 1));
        } else if (!rest.empty() && rest[0] == '1') {
            rest.erase(0, 1);
            verdict.expect(rest == "2", "1 without 2: " + codes);
        }
        const bool ended = rest == "2" || rest == "5" || rest == "0";
        verdict.expect(
            ended || (codes.empty() && !mStarted) || (codes.empty() && mFetch == Fetch::eObject),
            "a sequence of codes that cannot be: " + codes);
        if (verdict.mustSucceed()) {
            const bool whole = codes.find('5') != std::string::npos &&
                               mTold.bytes() == static_cast<int>(kDocument.size());
            verdict.expect(mStarted, "it does not start");
            verdict.expect(mFetch > Fetch::eWhole || whole, "not the whole document: " + codes);
            verdict.expect(mFetch != Fetch::eRefused || codes == "12", "not refused: " + codes);
            verdict.expect(
                (mFetch != Fetch::eCancel && mFetch != Fetch::eStopByResult) || codes.back() == '2',
                "not cancelled: " + codes);
        }
        verdict.expect(rest != "5" || (mFetch == Fetch::eNoLength && verdict.mFired) ||
                           mTold.bytes() == static_cast<int>(kDocument.size()) ||
                           (verdict.failedIn(Function::recv) && verdict.mPlan.mFailure == kEnd),
                       "done without the whole document");
    }

    Fetch mFetch;
    std::unique_ptr<tests::ScriptedServer> mpServer;
    std::unique_ptr<tests::DeadPort> mpDead;
    std::string mUrl;
    Told mTold;
    std::unique_ptr<sysUrlFetcher> mpFetcher;
    std::size_t mThreads = 0;
    bool mStarted = false;
    bool mRan = false;
};

enum class Chain { eByName, eTwo, eRefused, eFlush, eNotFound };

class ChainCase : public Case {
public:
    explicit ChainCase(Chain chain) : mChain(chain) {}

    void prepare(World& /*world*/) override {
        mpServer = std::make_unique<tests::ScriptedServer>();
        mpServer->always(mChain == Chain::eNotFound ? tests::replyWith("HTTP/1.0 404 No\r\n\r\n")
                                                    : documentReply());
        mpDead = std::make_unique<tests::DeadPort>(tests::DeadPort::eRefusing);
        mUrl = mChain == Chain::eRefused ? mpDead->url() : mpServer->url();
        if (mChain == Chain::eByName) {
            mUrl = "http://peer.example:" + std::to_string(mpServer->port()) + "/";
        }
        mThreads = tests::threadIds().size() + 1;
    }

    void act() override { fetch(mChain == Chain::eTwo ? 2 : 1); }

    void check(Verdict& verdict) override {
        const bool good = mChain <= Chain::eTwo || mChain == Chain::eFlush;
        verdict.expect(mDelivered <= mPushed, "more deliveries than entries");
        verdict.expect(mWhole <= mDelivered, "whole and not delivered");
        if (verdict.mustSucceed()) {
            verdict.expect(mDelivered == mPushed, "an entry is not delivered");
            verdict.expect(!good || mWhole == mDelivered, "a document is not whole");
        }
        mChain = Chain::eTwo;
        tests::ScriptedServer next;
        next.always(documentReply());
        mUrl = next.url();
        mDelivered = 0;
        mWhole = 0;
        mThreads = tests::threadIds().size();
        fetch(2);
        verdict.expect(mDelivered == 2 && mWhole == 2, "the next chain fails");
    }

private:
    void fetch(int count) {
        sysChainFetcher fetcher;
        fetcher.setCallback(callback, this);
        mPushed = 0;
        for (int i = 0; i < count; ++i) {
            fetcher.pushUrl(static_cast<unsigned>(i), mUrl.c_str());
            ++mPushed;
        }
        const Exempt exempt;
        while (mDelivered < mPushed && tests::threadIds().size() > mThreads) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        if (mChain == Chain::eFlush) {
            fetcher.flush();
        }
    }

    static void callback(bool ok, unsigned, const char*, char*, int length, void* user) {
        const Exempt exempt;
        auto* const self = static_cast<ChainCase*>(user);
        self->mWhole += ok && length == static_cast<int>(kDocument.size()) ? 1 : 0;
        ++self->mDelivered;
    }

    Chain mChain;
    std::unique_ptr<tests::ScriptedServer> mpServer;
    std::unique_ptr<tests::DeadPort> mpDead;
    std::string mUrl;
    std::size_t mThreads = 0;
    std::atomic<int> mPushed{0};
    std::atomic<int> mDelivered{0};
    std::atomic<int> mWhole{0};
};

}  // namespace

void addFetcherScenarios(Scenarios& scenarios) {
    const struct {
        const char* mName;
        Fetch mFetch;
    } fetches[] = {{"fetch.by-name", Fetch::eByName},
                   {"fetch.no-length", Fetch::eNoLength},
                   {"fetch", Fetch::eWhole},
                   {"fetch.cancelled", Fetch::eCancel},
                   {"fetch.stopped", Fetch::eStopByResult},
                   {"fetch.refused", Fetch::eRefused},
                   {"fetch.no-callback", Fetch::eNoCallback},
                   {"fetch.destroyed", Fetch::eObject}};
    for (const auto& each : fetches) {
        scenarios.push_back(scenario<FetcherCase>(each.mName, each.mFetch));
        scenarios.back().mCancelled = {0, 1};  // the caller, and the worker
    }
    const struct {
        const char* mName;
        Chain mChain;
    } chains[] = {{"chain.by-name", Chain::eByName},
                  {"chain", Chain::eTwo},
                  {"chain.refused", Chain::eRefused},
                  {"chain.flushed", Chain::eFlush},
                  {"chain.not-found", Chain::eNotFound}};
    for (const auto& each : chains) {
        scenarios.push_back(scenario<ChainCase>(each.mName, each.mChain));
    }
}

}  // namespace torture
