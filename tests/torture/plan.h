// SPDX-License-Identifier: MIT
//
// What is to go wrong in one run, and the counters that find the place. Both lie in memory that the
// run's processes share: the children of the library count their calls, too.
#ifndef KESTROVA_TESTS_TORTURE_PLAN_H
#define KESTROVA_TESTS_TORTURE_PLAN_H

#include <atomic>
#include <string>

#include "tests/torture/functions.h"

namespace torture {

enum class Kind : int {
    eNone,  ///< nothing goes wrong: the run counts
    eCall,
    eAllocation,
    eCancel,
    eTool,
};

const char* nameOf(Kind kind);

/// One thing that goes wrong. Calls, allocations and cancellation points are counted from 1 for
/// each actor, that is for each thread and each forked child, in the order in which they were
/// created; actor 0 is the thread that calls the library.
struct Plan {
    Kind mKind = Kind::eNone;
    int mActor = 0;
    int mNth = 0;          ///< of a tool: the nth run of any tool
    int mFailure = 0;      ///< of a call: an errno or a way to fail; of a tool: its misbehaviour
    bool mOnward = false;  ///< every later call of that function, or allocation, fails as well

    /// "call/0.17/EIO", "call/0.17/EIO+", "alloc/0.3", "cancel/1.5", "tool/0.2/exit-3".
    std::string text() const;
    /// The opposite; false for a text that is no plan.
    bool parse(const std::string& text);
};

constexpr int kMostActors = 64;
constexpr int kMostEvents = 16384;
constexpr int kMostToolRuns = 32;
constexpr int kToolPath = 32;

/// A call that can fail, or can be cancelled, in the order in which they came.
struct Event {
    short mActor;
    short mFunction;
};

struct Shared {
    Plan mPlan;
    std::atomic<bool> mArmed;
    std::atomic<int> mFired;    ///< how often something went wrong as planned
    std::atomic<int> mFiredIn;  ///< the function where it did first
    std::atomic<int> mActors;
    std::atomic<int> mCalls[kMostActors];
    std::atomic<int> mAllocations[kMostActors];
    std::atomic<int> mPoints[kMostActors];
    std::atomic<int> mEvents;
    Event mEvent[kMostEvents];

    std::atomic<int> mToolRuns;                ///< how often tools were run
    char mToolPath[kMostToolRuns][kToolPath];  ///< by what first arguments
    char mHiddenTool[kToolPath];               ///< a tool to be taken away, or ""
    std::atomic<int> mDone;                    ///< the run has come to its end
    std::atomic<int> mTextLength;
    char mText[8192];  ///< what was found, a line each
};

/// Of this program, for the runs of a process and its descendants.
Shared& shared();
/// For the next run.
void resetShared(const Plan& plan);
/// Adds a line to what was found.
void addFinding(const std::string& line);

/// Makes the calling thread an actor for a scope: what it calls counts.
class Inside {
public:
    explicit Inside(int actor);
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

/// Whether what the calling thread calls counts now.
bool isInside();
int currentActor();
/// A number for a thread or child that is about to be created.
int newActor();
/// Of a forked child, and of a thread that the library has created.
void becomeActor(int actor);

/// Counts a call. The failure that is planned for it, 0 for none.
int decide(Function function);
/// Counts an allocation. True when there is to be no memory.
bool refusesMemory();

}  // namespace torture

#endif
