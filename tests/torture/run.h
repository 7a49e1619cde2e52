// SPDX-License-Identifier: MIT
//
// One run of a scenario, in processes of its own: a crash or a hang is a finding, not the end.
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
    std::vector<std::string> mFindings;  ///< empty when all is well
    std::string mOutput;                 ///< of the run, both streams
};

/// Starts runs from a process that has prepared everything that they share.
class Runner {
public:
    explicit Runner(World& world);

    Outcome run(const Scenario& scenario, const Plan& plan);
    /// Everything that can go wrong in a scenario, by a run in which nothing does; what that run
    /// finds is in the outcome.
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
