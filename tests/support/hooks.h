// SPDX-License-Identifier: MIT
//
// The hooks that are called after failed assertions and attention checks. A program that uses
// HookRecorder gets these instead of the library's empty ones.
#ifndef KESTROVA_TESTS_SUPPORT_HOOKS_H
#define KESTROVA_TESTS_SUPPORT_HOOKS_H

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace tests {

/// One call of the attention hook.
struct AttentionCall {
    std::string mFile;
    int mLine;
    unsigned mLevel;
    std::string mPrefixes;  ///< the three texts, joined with "|"
};

/// Records the calls of both hooks during a scope. Cannot be nested.
class HookRecorder {
public:
    HookRecorder();
    ~HookRecorder();
    HookRecorder(const HookRecorder&) = delete;
    HookRecorder& operator=(const HookRecorder&) = delete;

    int assertions() const;
    std::vector<AttentionCall> attentions() const;
    /// Sets an action for every further hook call.
    void onCall(std::function<void()> action);

    void addAssertion();
    void addAttention(AttentionCall call);

private:
    mutable std::mutex mLock;
    int mAssertions = 0;
    std::vector<AttentionCall> mAttentions;
    std::function<void()> mAction;
};

}  // namespace tests

#endif
