// SPDX-License-Identifier: MIT
#include "app/commands/drive/driveclaim.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "app/commands/resourcelock.h"
#include "app/session.h"

namespace app {

namespace {

/// Publishes the progress of work. While the publisher thread runs, only that thread uses the
/// claim.
class PublishedWork : public Work {
public:
    PublishedWork(std::unique_ptr<Work> work, DriveClaim& claim)
        : mWork(std::move(work)), mClaim(claim), mPublisher([this] { publish(); }) {}
    ~PublishedWork() override { stop(); }

    const char* name() const override { return mWork->name(); }
    bool ended() override {
        const std::lock_guard<std::mutex> lock(mLock);
        return mWork->ended();
    }
    Progress progress() override {
        const std::lock_guard<std::mutex> lock(mLock);
        return mWork->progress();
    }
    Result finish() override {
        stop();
        mClaim.publish(mWork->progress());
        return mWork->finish();
    }

private:
    void publish() {
        constexpr auto interval = std::chrono::milliseconds(100);
        std::unique_lock<std::mutex> lock(mLock);
        Progress shown;
        do {
            const Progress progress = mWork->progress();
            if (!(progress == shown)) {
                mClaim.publish(progress);
                shown = progress;
            }
        } while (!mStop.wait_for(lock, interval, [this] { return mStopped; }));
    }

    void stop() {
        {
            const std::lock_guard<std::mutex> lock(mLock);
            mStopped = true;
        }
        mStop.notify_one();
        if (mPublisher.joinable()) {
            mPublisher.join();
        }
    }

    std::unique_ptr<Work> mWork;
    DriveClaim& mClaim;
    std::mutex mLock;  // guards mWork and mStopped
    std::condition_variable mStop;
    bool mStopped = false;
    std::thread mPublisher;  // last member: started after everything that it uses
};

}  // namespace

Result DriveClaim::take(Session& session, const Invocation& invocation) {
    if (held()) {
        return {};
    }
    auto lock = std::make_unique<sysResourceLock>(sysResourceLock::eResRecordingDrive,
                                                  session.holderName(invocation).c_str());
    Result result = takeLock(session, invocation, *lock, sysResourceLock::eMoExclusive);
    if (result.good()) {
        mLock = std::move(lock);
    }
    return result;
}

void DriveClaim::publish(const Progress& progress) {
    if (held()) {
        (void)mLock->publish(progress.mState.c_str(), progress.mPercent);
    }
}

std::unique_ptr<Work> publishedWork(std::unique_ptr<Work> work, DriveClaim& claim) {
    claim.publish(work->progress());  // so that the progress is visible at once
    return std::make_unique<PublishedWork>(std::move(work), claim);
}

}  // namespace app
