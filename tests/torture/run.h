// SPDX-License-Identifier: MIT
//
// One run of a scenario, in separate processes, so that a crash or a hang is only a finding.
#ifndef KESTROVA_TESTS_TORTURE_RUN_H
#define KESTROVA_TESTS_TORTURE_RUN_H

#include <map>
#include <string>
#include <vector>

#include "tests/torture/scenario.h"

namespace torture {

struct Outcome {
    bool mFired = false;
    int mFiredIn = -1;                   ///< a Function, or -1
    std::vector<std::string> mFindings;  ///< empty if there are none
    std::string mOutput;                 ///< of the run, both streams
};

/// Starts runs from a process that has prepared what they share.
class Runner {
public:
    explicit Runner(World& world);

    Outcome run(const Scenario& scenario, const Plan& plan);
    /// Returns everything that can fail in a scenario, found by a run without failures; findings of
    /// that run are in the outcome.
    std::vector<Plan> plansFor(const Scenario& scenario, Outcome& outcome);

private:
    static void restoreTool();

    World& mWorld;
    int mOwnProcesses = -1;
    int mOutput = -1;
    int mErrors = -1;
    std::map<std::string, std::vector<std::string>> mToolPaths;  ///< for each scenario
};

}  // namespace torture

#endif
