// SPDX-License-Identifier: MIT
//
// The program's own hooks behind failed assertions and attention checks. A program that uses
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
    std::string mPrefixes;  ///< the three texts, one behind the other, "|" between them
};

/// Records the calls of both hooks during a scope. Not to be nested.
class HookRecorder {
public:
    HookRecorder();
    ~HookRecorder();
    HookRecorder(const HookRecorder&) = delete;
    HookRecorder& operator=(const HookRecorder&) = delete;

    int assertions() const;
    std::vector<AttentionCall> attentions() const;
    /// Runs in every hook call from now on.
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
