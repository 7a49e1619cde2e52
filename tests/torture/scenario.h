// SPDX-License-Identifier: MIT
//
// A scenario is one operation of the library, or a few related ones, from a prepared state. It runs
// once for each possible failure, and its effects are checked each time.
#ifndef KESTROVA_TESTS_TORTURE_SCENARIO_H
#define KESTROVA_TESTS_TORTURE_SCENARIO_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/torture/plan.h"
#include "tests/torture/toolfaults.h"
#include "tests/torture/world.h"

namespace torture {

/// The result of a run, for the checks.
class Verdict {
public:
    Verdict(World& world, const Plan& plan) : mWorld(world), mPlan(plan) {}

    World& mWorld;
    const Plan& mPlan;
    bool mFired = false;  ///< the planned failure happened
    Function mFiredIn = Function::close;
    bool mThrew = false;      ///< the operation threw std::bad_alloc
    bool mCancelled = false;  ///< the calling thread was cancelled
    std::string mOutput;      ///< standard output of the run
    std::string mErrors;      ///< standard error

    /// Reports a condition that does not hold.
    void expect(bool held, const std::string& what);

    /// Returns whether nothing failed, or only calls that the library must retry or complete.
    bool mustSucceed() const;
    /// Returns whether the operation returned: it was neither cancelled nor threw.
    bool returned() const { return !mThrew && !mCancelled; }
    /// Returns whether a call of the log itself failed, so that a message may be missing.
    bool mayLackText() const;
    /// Returns whether one of these texts was written, to either stream.
    bool said(std::initializer_list<const char*> texts) const;
    /// If the operation failed, expects one of these texts.
    void expectSaid(std::initializer_list<const char*> texts);

    bool failedIn(Function function) const {
        return mFired && mPlan.mKind == Kind::eCall && mFiredIn == function;
    }
    bool isTool() const { return mPlan.mKind == Kind::eTool && mFired; }
    /// Returns how the tool of this run misbehaved; valid if isTool().
    const ToolFault& toolFault() const {
        return toolFaults()[static_cast<std::size_t>(mPlan.mFailure)];
    }
    /// Returns whether this tool was run as the disturbed tool, and fails.
    bool toolFailed(const std::string& path) const;
    /// Returns whether a tool reported success without doing its work.
    bool toolLied() const { return isTool() && toolFault().mLies; }

    std::string mDisturbedTool;  ///< its first argument
};

class Case {
public:
    Case() = default;
    virtual ~Case() = default;
    Case(const Case&) = delete;
    Case& operator=(const Case&) = delete;

    /// Runs before the operation. Calls do not count.
    virtual void prepare(World& /*world*/) {}
    /// Runs the operation, on a separate thread: every call counts.
    virtual void act() = 0;
    /// Does what an application always does after the operation, such as waiting for its children.
    virtual void settle() {}
    /// Runs after the operation: checks the results, leaks, and that the next operation works.
    /// Calls do not count.
    virtual void check(Verdict& verdict) = 0;
    /// Returns the number of descriptors that stay open on purpose.
    virtual int descriptorsKept(const Verdict& /*verdict*/) const { return 0; }
};

struct Scenario {
    std::string mName;
    std::function<std::unique_ptr<Case>()> mMake;
    std::vector<int> mCancelled = {0};  ///< actors that may be cancelled
};

using Scenarios = std::vector<Scenario>;

void addBootScenarios(Scenarios& scenarios);
void addEnvironmentFileScenarios(Scenarios& scenarios);
void addDriveScenarios(Scenarios& scenarios);
void addPartitionScenarios(Scenarios& scenarios);
void addHttpScenarios(Scenarios& scenarios);
void addFetcherScenarios(Scenarios& scenarios);
void addLockScenarios(Scenarios& scenarios);
void addProcessScenarios(Scenarios& scenarios);
void addSystemScenarios(Scenarios& scenarios);
/// Adds operations with a known defect, each of which must be found.
void addControlScenarios(Scenarios& scenarios);

/// Creates a scenario of a class with its arguments.
template <class Class, class... Arguments>
Scenario scenario(const std::string& name, Arguments... arguments) {
    return {name, [=] { return std::make_unique<Class>(arguments...); }, {0}};
}

}  // namespace torture

#endif
