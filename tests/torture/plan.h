// SPDX-License-Identifier: MIT
//
// The planned failure of one run, and the counters that find its position. Both are in memory that
// the run's processes share, because the library's children count their calls as well.
#ifndef KESTROVA_TESTS_TORTURE_PLAN_H
#define KESTROVA_TESTS_TORTURE_PLAN_H

#include <atomic>
#include <string>

#include "tests/torture/functions.h"

namespace torture {

enum class Kind : int {
    eNone,  ///< nothing fails: the run only counts
    eCall,
    eAllocation,
    eCancel,
    eTool,
};

const char* nameOf(Kind kind);

/// One planned failure. Calls, allocations and cancellation points are counted from 1 for each
/// actor: each thread and each forked child, in the order of creation. Actor 0 is the thread that
/// calls the library.
struct Plan {
    Kind mKind = Kind::eNone;
    int mActor = 0;
    int mNth = 0;          ///< of a tool: the nth run of any tool
    int mFailure = 0;      ///< of a call: an errno or a way to fail; of a tool: its misbehaviour
    bool mOnward = false;  ///< every later call of that function, or allocation, fails as well

    /// "call/0.17/EIO", "call/0.17/EIO+", "alloc/0.3", "cancel/1.5", "tool/0.2/exit-3".
    std::string text() const;
    /// The inverse of text(). Returns false for an invalid text.
    bool parse(const std::string& text);
};

constexpr int kMostActors = 64;
constexpr int kMostEvents = 16384;
constexpr int kMostToolRuns = 32;
constexpr int kToolPath = 32;

/// A call that can fail or be cancelled, in order of occurrence.
struct Event {
    short mActor;
    short mFunction;
};

struct Shared {
    Plan mPlan;
    std::atomic<bool> mArmed;
    std::atomic<int> mFired;    ///< number of planned failures that happened
    std::atomic<int> mFiredIn;  ///< the function where the first one happened
    std::atomic<int> mActors;
    std::atomic<int> mCalls[kMostActors];
    std::atomic<int> mAllocations[kMostActors];
    std::atomic<int> mPoints[kMostActors];
    std::atomic<int> mEvents;
    Event mEvent[kMostEvents];

    std::atomic<int> mToolRuns;                ///< number of tool runs
    char mToolPath[kMostToolRuns][kToolPath];  ///< their first arguments
    char mHiddenTool[kToolPath];               ///< a tool to hide, or ""
    std::atomic<int> mDone;                    ///< the run has ended
    std::atomic<int> mTextLength;
    char mText[8192];  ///< findings, one per line
};

/// Returns the memory that this program shares with its runs and their descendants.
Shared& shared();
/// Resets it for the next run.
void resetShared(const Plan& plan);
/// Adds a line to the findings.
void addFinding(const std::string& line);

/// Makes the calling thread an actor for a scope, whose calls count.
class Inside {
public:
    explicit Inside(int actor);
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

/// Returns whether calls of the calling thread count now.
bool isInside();
int currentActor();
/// Returns a number for a thread or child that is about to be created.
int newActor();
/// Sets the actor of a forked child, or of a thread that the library has created.
void becomeActor(int actor);

/// Counts a call. Returns its planned failure, or 0.
int decide(Function function);
/// Counts an allocation. Returns true if it must fail.
bool refusesMemory();

}  // namespace torture

#endif
