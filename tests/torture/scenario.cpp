// SPDX-License-Identifier: MIT
#include "tests/torture/scenario.h"

#include <algorithm>

namespace torture {

void Verdict::expect(bool held, const std::string& what) {
    if (!held) {
        addFinding(what);
    }
}

bool Verdict::mustSucceed() const {
    if (!mFired || mPlan.mKind == Kind::eNone) {
        return true;
    }
    if (mPlan.mKind == Kind::eTool) {
        return !toolFault().mFails && !toolFault().mLies;
    }
    return mPlan.mKind == Kind::eCall &&
           (isTransient(mFiredIn, mPlan.mFailure) || isOutput(mFiredIn));
}

bool Verdict::mayLackText() const {
    return (mPlan.mKind == Kind::eCall && isOutput(mFiredIn)) || mPlan.mKind == Kind::eAllocation;
}

bool Verdict::said(std::initializer_list<const char*> texts) const {
    return std::any_of(texts.begin(), texts.end(), [this](const char* text) {
        return mOutput.find(text) != std::string::npos || mErrors.find(text) != std::string::npos;
    });
}

void Verdict::expectSaid(std::initializer_list<const char*> texts) {
    std::string wanted;
    for (const char* const text : texts) {
        wanted += std::string(wanted.empty() ? "" : " | ") + text;
    }
    expect(mayLackText() || said(texts), "a failure without its message: " + wanted);
}

bool Verdict::toolFailed(const std::string& path) const {
    return isTool() && toolFault().mFails && mDisturbedTool == path;
}

}  // namespace torture
