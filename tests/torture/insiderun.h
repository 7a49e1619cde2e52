// SPDX-License-Identifier: MIT
//
// The process of one run.
#ifndef KESTROVA_TESTS_TORTURE_INSIDERUN_H
#define KESTROVA_TESTS_TORTURE_INSIDERUN_H

#include "tests/torture/scenario.h"

namespace torture {

// Descriptors of the files that receive the run's standard output and standard error.
constexpr int kOutputNumber = 500;
constexpr int kErrorsNumber = 501;

/// Triggers the C library's one-time allocations, so that they are not counted in a run.
void warmUp();

[[noreturn]] void insideRun(const Scenario& scenario, World& world);

}  // namespace torture

#endif
