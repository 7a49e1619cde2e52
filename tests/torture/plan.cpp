// SPDX-License-Identifier: MIT
#include "tests/torture/plan.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/support/failingcalls.h"
#include "tests/torture/toolfaults.h"

namespace torture {

namespace {

struct Context {
    bool mInside = false;
    bool mExempt = false;
    int mActor = 0;
    int mCancelState = PTHREAD_CANCEL_ENABLE;  ///< before the Exempt scope
};
thread_local Context context;

Shared* memory = nullptr;

const char* const kKinds[] = {"none", "call", "alloc", "cancel", "tool"};

void noteFired(Function function) {
    if (memory->mFired++ == 0) {
        memory->mFiredIn = static_cast<int>(function);
    }
}

bool isPlace(const Plan& plan, int nth) {
    return plan.mActor == context.mActor && plan.mNth == nth;
}

}  // namespace

const char* nameOf(Kind kind) {
    return kKinds[static_cast<int>(kind)];
}

std::string Plan::text() const {
    std::string text =
        std::string(nameOf(mKind)) + "/" + std::to_string(mActor) + "." + std::to_string(mNth);
    if (mKind == Kind::eCall) {
        text += "/" + failureName(mFailure);
    } else if (mKind == Kind::eTool) {
        text += "/" + toolFaults()[static_cast<std::size_t>(mFailure)].mName;
    }
    return text + (mOnward ? "+" : "");
}

bool Plan::parse(const std::string& text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) {
        return false;
    }
    const auto* const kind = std::find(std::begin(kKinds), std::end(kKinds), text.substr(0, slash));
    if (kind == std::end(kKinds)) {
        return false;
    }
    mKind = static_cast<Kind>(kind - kKinds);
    char* end = nullptr;
    mActor = static_cast<int>(std::strtol(text.c_str() + slash + 1, &end, 10));
    if (*end++ != '.') {
        return false;
    }
    mNth = static_cast<int>(std::strtol(end, &end, 10));
    std::string rest = end;
    mOnward = !rest.empty() && rest.back() == '+';
    if (mOnward) {
        rest.pop_back();
    }
    if (mKind == Kind::eCall) {
        mFailure = rest.empty() ? 0 : failureFrom(rest.substr(1));
        return mFailure != 0;
    }
    if (mKind == Kind::eTool) {
        mFailure = rest.empty() ? -1 : toolFaultFrom(rest.substr(1));
        return mFailure >= 0;
    }
    return rest.empty();
}

Shared& shared() {
    if (memory == nullptr) {
        void* const mapped = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                    MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED) {
            std::abort();
        }
        memory = new (mapped) Shared;
    }
    return *memory;
}

void resetShared(const Plan& plan) {
    Shared& all = shared();
    all.mPlan = plan;
    all.mArmed = false;
    all.mFired = 0;
    all.mFiredIn = -1;
    all.mActors = 1;
    for (int actor = 0; actor < kMostActors; ++actor) {
        all.mCalls[actor] = 0;
        all.mAllocations[actor] = 0;
        all.mPoints[actor] = 0;
    }
    all.mEvents = 0;
    all.mToolRuns = 0;
    all.mHiddenTool[0] = '\0';
    all.mDone = 0;
    all.mTextLength = 0;
}

void addFinding(const std::string& line) {
    Shared& all = shared();
    const auto room = static_cast<int>(sizeof(all.mText));
    const auto length = static_cast<int>(line.size()) + 1;
    const int at = all.mTextLength.fetch_add(length);
    if (at + length <= room) {
        std::memcpy(all.mText + at, (line + "\n").data(), static_cast<std::size_t>(length));
    } else {
        all.mTextLength = std::min(at, room);
    }
}

Inside::Inside(int actor) {
    becomeActor(actor);
}

Inside::~Inside() {
    context.mInside = false;
}

bool isInside() {
    return context.mInside && !context.mExempt && memory != nullptr && memory->mArmed;
}

int currentActor() {
    return context.mActor;
}

int newActor() {
    return std::min(memory->mActors++, kMostActors - 1);
}

void becomeActor(int actor) {
    context.mInside = true;
    context.mExempt = false;
    context.mActor = actor;
}

int decide(Function function) {
    if (!isInside()) {
        return 0;
    }
    const int call = ++memory->mCalls[context.mActor];
    const Plan& plan = memory->mPlan;
    if (plan.mKind == Kind::eNone) {
        const int event = memory->mEvents++;
        if (event < kMostEvents) {
            memory->mEvent[event] = {static_cast<short>(context.mActor),
                                     static_cast<short>(function)};
        }
    }
    if (isCancellationPoint(function)) {
        const int point = ++memory->mPoints[context.mActor];
        if (plan.mKind == Kind::eCancel && isPlace(plan, point)) {
            noteFired(function);
            (void)pthread_cancel(pthread_self());
        }
    }
    if (plan.mKind != Kind::eCall) {
        return 0;
    }
    const bool again = plan.mOnward && memory->mFiredIn == static_cast<int>(function);
    if (!again && !isPlace(plan, call)) {
        return 0;
    }
    const std::vector<int>& failures = failuresOf(function);
    // If a run differs from the counting run, another function may be at this position.
    if (std::find(failures.begin(), failures.end(), plan.mFailure) == failures.end()) {
        return 0;
    }
    noteFired(function);
    return plan.mFailure;
}

bool refusesMemory() {
    if (!isInside()) {
        return false;
    }
    const int allocation = ++memory->mAllocations[context.mActor];
    const Plan& plan = memory->mPlan;
    if (plan.mKind != Kind::eAllocation) {
        return false;
    }
    if (isPlace(plan, allocation) || (plan.mOnward && memory->mFired > 0)) {
        if (memory->mFired++ == 0) {
            memory->mFiredIn = -1;
        }
        return true;
    }
    return false;
}

}  // namespace torture

namespace failingcalls {

// A pending cancellation waits for the library's own calls.
Exempt::Exempt() : mBefore(torture::context.mExempt) {
    if (!mBefore) {
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &torture::context.mCancelState);
    }
    torture::context.mExempt = true;
}

Exempt::~Exempt() {
    torture::context.mExempt = mBefore;
    if (!mBefore) {
        (void)pthread_setcancelstate(torture::context.mCancelState, nullptr);
    }
}

}  // namespace failingcalls
