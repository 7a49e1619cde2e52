// SPDX-License-Identifier: MIT
//
// The locks that the processes of a box share.
#include <string>

#include "System/sysResourceLock.h"
#include "tests/torture/scenario.h"

namespace torture {

namespace {

constexpr sysResourceLock::Resource kResource = sysResourceLock::eResRecordingDrive;

enum class Step { eTry, eShared, eBusy, eWait, ePublish, eLook, eUnlock };

class LockCase : public Case {
public:
    explicit LockCase(Step step) : mStep(step) {}

    void prepare(World& /*world*/) override {
        mpOther = std::make_unique<sysResourceLock>(kResource, "the other");
        mpLock = std::make_unique<sysResourceLock>(kResource, "the lock");
        if (mStep == Step::eBusy || mStep == Step::eWait || mStep == Step::eLook) {
            (void)mpOther->tryLock();
        } else if (mStep == Step::ePublish || mStep == Step::eUnlock) {
            (void)mpLock->tryLock();
        }
    }

    void act() override {
        switch (mStep) {
            case Step::eTry:
                mResult = mpLock->tryLock();
                break;
            case Step::eShared:
                mResult = mpLock->tryLock(sysResourceLock::eMoShared);
                break;
            case Step::eBusy:
                mResult = !mpLock->tryLock();
                break;
            case Step::eWait:
                mResult = !mpLock->lock(sysResourceLock::eMoExclusive, 15);
                break;
            case Step::ePublish:
                mResult = mpLock->publish("formatting", 50);
                break;
            case Step::eLook:
                mResult = sysResourceLock::holder(kResource, mHolder);
                break;
            case Step::eUnlock:
                mpLock->unlock();
                mResult = !mpLock->held();
                break;
        }
        mReason = mpLock->reason();
        mBlocker = mpLock->blocker();
    }

    int descriptorsKept(const Verdict& /*verdict*/) const override {
        // The open file holds the lock.
        return mpLock->held() ? 1 : 0;
    }

    void check(Verdict& verdict) override {
        verdict.expect(!verdict.mustSucceed() || mResult, "the operation failed without a reason");
        checkResult(verdict);
        checkOthers(verdict);
        checkNext(verdict);
    }

private:
    void checkResult(Verdict& verdict) {
        const bool takes = mStep == Step::eTry || mStep == Step::eShared;
        if (takes && verdict.returned()) {
            verdict.expect(mResult == mpLock->held(), "a result against the state");
            verdict.expect(mResult || (mpLock->error() != 0 && !mReason.empty()),
                           "a failure without a reason");
        }
        if (takes && !verdict.returned() && !mResult) {
            verdict.expect(!mpLock->held() || verdict.mCancelled || verdict.mThrew,
                           "held after a failure");
        }
        if ((mStep == Step::eBusy || mStep == Step::eWait) && verdict.mustSucceed()) {
            verdict.expect(mpLock->busy() && !mpLock->held() && mBlocker.mHeld &&
                               mBlocker.mCommand == "the other",
                           "busy, and not by the other");
        }
        if (mStep == Step::ePublish) {
            verdict.expect(mpLock->held(), "a lock that is lost");
            verdict.expect(mResult || !verdict.returned() || !mReason.empty(),
                           "a failure without a reason");
        }
        if (mStep == Step::eLook && verdict.mustSucceed()) {
            verdict.expect(mHolder.mHeld && mHolder.mCommand == "the other", "no holder is found");
        }
        if (mStep == Step::eLook && verdict.returned() && !mResult) {
            verdict.expect(!mHolder.mReason.empty(), "a failure without a reason");
        }
    }

    /// Checks that a holder excludes all others, and that without a holder the lock is free.
    void checkOthers(Verdict& verdict) {
        sysResourceLock third(kResource, "the third");
        const bool held = mpLock->held() || mpOther->held();
        verdict.expect(third.tryLock() != held,
                       held ? "two hold the lock" : "nobody holds the lock and it is taken");
    }

    void checkNext(Verdict& verdict) {
        mpOther->unlock();
        mpLock->unlock();
        verdict.expect(mpLock->tryLock(), "the next lock fails: " + mpLock->reason());
        verdict.expect(mpLock->publish("next", 1), "the next publish fails");
        sysResourceLock::Holder holder;
        verdict.expect(sysResourceLock::holder(kResource, holder) && holder.mState == "next",
                       "the next look fails");
        mpLock->unlock();
    }

    Step mStep;
    std::unique_ptr<sysResourceLock> mpLock;
    std::unique_ptr<sysResourceLock> mpOther;
    sysResourceLock::Holder mHolder;
    sysResourceLock::Holder mBlocker;
    std::string mReason;
    bool mResult = false;
};

}  // namespace

void addLockScenarios(Scenarios& scenarios) {
    const struct {
        const char* mName;
        Step mStep;
    } steps[] = {{"lock-try", Step::eTry},         {"lock-try.shared", Step::eShared},
                 {"lock-try.busy", Step::eBusy},   {"lock-wait", Step::eWait},
                 {"lock-publish", Step::ePublish}, {"lock-look", Step::eLook},
                 {"lock-unlock", Step::eUnlock}};
    for (const auto& each : steps) {
        scenarios.push_back(scenario<LockCase>(each.mName, each.mStep));
    }
}

}  // namespace torture
