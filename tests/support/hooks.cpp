// SPDX-License-Identifier: MIT
#include "tests/support/hooks.h"

#include <atomic>
#include <utility>

#include "base/log/log.h"

namespace {

std::atomic<tests::HookRecorder*> current{nullptr};

}  // namespace

void fassert_point_fired() {
    if (tests::HookRecorder* const recorder = current.load()) {
        recorder->addAssertion();
    }
}

void fcheck_point_fired(const char* file, int line, unsigned level, const char* prefix1,
                        const char* prefix2, const char* prefix3) {
    if (tests::HookRecorder* const recorder = current.load()) {
        recorder->addAttention(
            {file, line, level, std::string(prefix1) + "|" + prefix2 + "|" + prefix3});
    }
}

namespace tests {

HookRecorder::HookRecorder() {
    current.store(this);
}

HookRecorder::~HookRecorder() {
    current.store(nullptr);
}

int HookRecorder::assertions() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return mAssertions;
}

std::vector<AttentionCall> HookRecorder::attentions() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return mAttentions;
}

void HookRecorder::onCall(std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(mLock);
    mAction = std::move(action);
}

void HookRecorder::addAssertion() {
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(mLock);
        ++mAssertions;
        action = mAction;
    }
    if (action) {
        action();
    }
}

void HookRecorder::addAttention(AttentionCall call) {
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mAttentions.push_back(std::move(call));
        action = mAction;
    }
    if (action) {
        action();
    }
}

}  // namespace tests
