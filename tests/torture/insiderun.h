// SPDX-License-Identifier: MIT
//
// The process of one run.
#ifndef KESTROVA_TESTS_TORTURE_INSIDERUN_H
#define KESTROVA_TESTS_TORTURE_INSIDERUN_H

#include "tests/torture/scenario.h"

namespace torture {

// Descriptors of the files that take the run's standard output and standard error.
constexpr int kOutputNumber = 500;
constexpr int kErrorsNumber = 501;

/// What the C library keeps for good at its first use, so that no run has to answer for it.
void warmUp();

[[noreturn]] void insideRun(const Scenario& scenario, World& world);

}  // namespace torture

#endif
