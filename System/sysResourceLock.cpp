// SPDX-License-Identifier: MIT
#include "System/sysResourceLock.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "System/resourcelock/lockfile.h"
#include "System/resourcelock/lockrecord.h"
#include "base/cancelguard.h"
#include "base/errnokeeper.h"
#include "base/io/descriptor.h"
#include "base/io/filelock.h"
#include "base/monotonictime.h"

using resourcelock::Failure;
using resourcelock::Look;
using resourcelock::Record;

namespace {

// Number of looks, one millisecond apart, after which a holder that has just taken the lock or is
// writing its record must be visible.
constexpr int kLooks = 10;

struct Names {
    const char* mFile;
    const char* mSubject;  // with its verb, for messages
    const char* mTitle;
};

Names namesOf(sysResourceLock::Resource resource) {
    if (resource == sysResourceLock::eResRecordingDrive) {
        return {"drive.lock", "the drive is", "the drive"};
    }
    return {"vars.lock", "the boot variables are", "the boot variables"};
}

void fill(sysResourceLock::Holder& holder, const Record& record) {
    holder.mHeld = true;
    holder.mMode = record.mShared ? sysResourceLock::eMoShared : sysResourceLock::eMoExclusive;
    holder.mPid = record.mPid;
    holder.mSince = record.mSince;
    holder.mCommand = record.mCommand;
    holder.mState = record.mState;
    holder.mPercent = record.mPercent;
}

/// Retries until the record can be read, because its holder may be writing it.
Look lookClosely(const base::Descriptor& file, sysResourceLock::Holder& holder) {
    Look look = Look::eUnreadable;
    for (int i = 0; i < kLooks && look == Look::eUnreadable; ++i) {
        if (i > 0) {
            base::sleepUntil(base::timeAfter(base::monotonicNow(), 1));
        }
        Record record;
        look = resourcelock::findHolder(file, record);
        if (look == Look::eFound) {
            fill(holder, record);
        }
    }
    holder.mHeld = look == Look::eFound || look == Look::eUnreadable;
    return look;
}

}  // namespace

namespace {

/// The path of a resource's lock file, and what errno says.
std::string failedCall(sysResourceLock::Resource resource) {
    const char* const problem = std::strerror(errno);
    std::string text = resourcelock::kFolder;
    return text.append("/").append(namesOf(resource).mFile).append(": ").append(problem);
}

}  // namespace

struct sysResourceLock::State {
    Resource mResource;
    Record mRecord;  // of this object's lock
    base::Descriptor mFile;
    int mSlot = -1;    // -1 if the file has no room for another shared holder
    pid_t mOwner = 0;  // the process that took the lock
    bool mBusy = false;
    int mError = 0;
    std::string mReason;
    Holder mBlocker;

    bool fail(int error, const std::string& reason) {
        mError = error;
        mReason = reason;
        errno = error;
        return false;
    }

    bool failOn(const std::string& what) {
        return fail(errno, std::string(namesOf(mResource).mTitle) + " can't be locked: " + what);
    }

    bool attempt(Mode mode);
    bool attemptOnce(Mode mode, bool& again);
    bool isBusy(const base::Descriptor& file, bool& again);
    bool show(base::Descriptor& file, Mode mode);
};

bool sysResourceLock::State::attempt(Mode mode) {
    const base::CancelGuard guard;
    mBusy = false;
    mBlocker = Holder();
    if (mFile.valid()) {
        return fail(EALREADY, "this object holds the lock already");
    }
    bool again = false;
    for (int i = 0; i < kLooks; ++i) {
        again = false;
        if (attemptOnce(mode, again) || !again) {
            return mFile.valid();
        }
        base::sleepUntil(base::timeAfter(base::monotonicNow(), 1));
    }
    return false;
}

bool sysResourceLock::State::attemptOnce(Mode mode, bool& again) {
    const Names names = namesOf(mResource);
    Failure failure;
    base::Descriptor file = resourcelock::openForLocking(names.mFile, failure);
    if (!file.valid()) {
        errno = failure.mError;
        return failOn(failure.mText);
    }
    if (!base::tryFlock(file, mode == eMoShared)) {
        return errno == EWOULDBLOCK ? isBusy(file, again)
                                    : failOn(std::string("flock: ") + std::strerror(errno));
    }
    // A lock on a file that has been removed meanwhile excludes no other process.
    if (!resourcelock::isCurrent(file, names.mFile)) {
        again = true;
        errno = EAGAIN;
        return failOn(std::string(names.mFile) + " is removed again and again");
    }
    return show(file, mode);
}

/// Another object holds the lock. A new attempt is worthwhile if no holder is visible: it may have
/// released the lock since, or may not have written its record yet.
bool sysResourceLock::State::isBusy(const base::Descriptor& file, bool& again) {
    Holder other;
    again = lookClosely(file, other) == Look::eNobody;
    mBusy = true;
    mBlocker = other;
    mBlocker.mHeld = true;
    std::string text = std::string(namesOf(mResource).mSubject) + " in use by ";
    text += other.mPid != 0 ? "process " + std::to_string(other.mPid) + " (" + other.mCommand + ")"
                            : std::string("another process");
    return fail(EWOULDBLOCK, text);
}

bool sysResourceLock::State::show(base::Descriptor& file, Mode mode) {
    mRecord.mPid = ::getpid();
    mRecord.mSince = std::max<long long>(std::time(nullptr), 0);
    mRecord.mShared = mode == eMoShared;
    mRecord.mState.clear();
    mRecord.mPercent = 0;
    const int slot = resourcelock::claimSlot(file);
    const bool full = slot < 0 && errno == EAGAIN && mode == eMoShared;
    if (!full && (slot < 0 || !resourcelock::writeSlot(file, slot, mRecord) ||
                  !resourcelock::showSlot(file, slot))) {
        return failOn(failedCall(mResource));
    }
    mBusy = false;
    mError = 0;
    mReason.clear();
    mSlot = slot;
    mOwner = ::getpid();
    mFile = std::move(file);
    return true;
}

sysResourceLock::sysResourceLock(Resource resource, const char* command) : mpState(new State) {
    mpState->mResource = resource;
    mpState->mRecord.mCommand =
        resourcelock::fieldText(command != nullptr ? command : program_invocation_short_name,
                                resourcelock::kLongestCommand);
}

sysResourceLock::~sysResourceLock() {
    unlock();
    delete mpState;
}

bool sysResourceLock::tryLock(Mode mode) {
    return mpState->attempt(mode);
}

bool sysResourceLock::lock(Mode mode, unsigned milliseconds) {
    return base::retryUntil(
        milliseconds, [&] { return mpState->attempt(mode); }, [&] { return !mpState->mBusy; });
}

void sysResourceLock::unlock() {
    const base::ErrnoKeeper keeper;
    if (!mpState->mFile.valid()) {
        return;
    }
    // A forked child shares the lock with its parent, which continues to use it.
    if (mpState->mOwner == ::getpid()) {
        resourcelock::releaseAll(mpState->mFile);
    }
    mpState->mFile.reset();
}

bool sysResourceLock::held() const {
    return mpState->mFile.valid();
}

bool sysResourceLock::busy() const {
    return mpState->mBusy;
}

int sysResourceLock::error() const {
    return mpState->mError;
}

std::string sysResourceLock::reason() const {
    return mpState->mReason;
}

sysResourceLock::Holder sysResourceLock::blocker() const {
    return mpState->mBlocker;
}

bool sysResourceLock::publish(const char* state, int percent) {
    const base::CancelGuard guard;
    if (!held()) {
        return mpState->fail(ENOLCK, "no lock is held");
    }
    constexpr int whole = 100;
    Record& record = mpState->mRecord;
    record.mState =
        resourcelock::fieldText(state != nullptr ? state : "", resourcelock::kLongestState);
    record.mPercent = std::clamp(percent, 0, whole);
    return mpState->mSlot < 0 || resourcelock::writeSlot(mpState->mFile, mpState->mSlot, record) ||
           mpState->fail(errno, failedCall(mpState->mResource));
}

bool sysResourceLock::holder(Resource resource, Holder& holder) {
    const base::CancelGuard guard;
    holder = Holder();
    Failure failure;
    const char* const name = namesOf(resource).mFile;
    const base::Descriptor file = resourcelock::openForLooking(name, failure);
    if (!file.valid()) {
        holder.mReason = failure.mError == ENOENT ? std::string() : failure.mText;
        errno = failure.mError;
        return failure.mError == ENOENT;
    }
    if (lookClosely(file, holder) == Look::eFailed) {
        holder.mReason = failedCall(resource);
        return false;
    }
    return true;
}
