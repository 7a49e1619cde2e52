// SPDX-License-Identifier: MIT
//
// A scenario is one operation of the library, or a few that belong together, from a prepared
// beginning. It runs once for each thing that can go wrong; each time what it has left is checked.
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

/// What became of a run, for the checks.
class Verdict {
public:
    Verdict(World& world, const Plan& plan) : mWorld(world), mPlan(plan) {}

    World& mWorld;
    const Plan& mPlan;
    bool mFired = false;  ///< what was planned has happened
    Function mFiredIn = Function::close;
    bool mThrew = false;      ///< the operation ended by bad_alloc
    bool mCancelled = false;  ///< the calling thread was cancelled
    std::string mOutput;      ///< standard output of the run
    std::string mErrors;      ///< standard error

    /// Reports what does not hold.
    void expect(bool held, const std::string& what);

    /// Nothing went wrong, or nothing that the library does not have to carry on from.
    bool mustSucceed() const;
    /// The operation came to its own end: it was neither cancelled nor threw.
    bool returned() const { return !mThrew && !mCancelled; }
    /// A failing call was one of the log's own, so that a message may be missing.
    bool mayLackText() const;
    /// One of these texts has been written, to either stream.
    bool said(std::initializer_list<const char*> texts) const;
    /// The operation reported failure: it says so too, in one of these texts.
    void expectSaid(std::initializer_list<const char*> texts);

    bool failedIn(Function function) const {
        return mFired && mPlan.mKind == Kind::eCall && mFiredIn == function;
    }
    bool isTool() const { return mPlan.mKind == Kind::eTool && mFired; }
    /// How the tool of this run misbehaved; while isTool().
    const ToolFault& toolFault() const {
        return toolFaults()[static_cast<std::size_t>(mPlan.mFailure)];
    }
    /// The disturbed tool was run, fails, and is this one.
    bool toolFailed(const std::string& path) const;
    /// A tool claimed success without having done its work.
    bool toolLied() const { return isTool() && toolFault().mLies; }

    std::string mDisturbedTool;  ///< its first argument
};

class Case {
public:
    Case() = default;
    virtual ~Case() = default;
    Case(const Case&) = delete;
    Case& operator=(const Case&) = delete;

    /// Before the run. What is called here does not count.
    virtual void prepare(World& /*world*/) {}
    /// The operation, on a thread of its own: every call counts.
    virtual void act() = 0;
    /// What an application does after the operation in any case, such as to wait for its children.
    virtual void settle() {}
    /// After the run: results, what is left, and that the next operation works. Does not count.
    virtual void check(Verdict& verdict) = 0;
    /// Descriptors that stay open on purpose.
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
/// Operations with a known defect: each must be found.
void addControlScenarios(Scenarios& scenarios);

/// A scenario of a class with its arguments.
template <class Class, class... Arguments>
Scenario scenario(const std::string& name, Arguments... arguments) {
    return {name, [=] { return std::make_unique<Class>(arguments...); }, {0}};
}

}  // namespace torture

#endif
