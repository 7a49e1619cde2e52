// SPDX-License-Identifier: MIT
//
// In a file of their own, so that the compiler cannot inline them: a breakpoint or a test's
// replacement sees every call.
#include "base/log/log.h"

void fassert_point_fired() {}

void fcheck_point_fired(const char* /*file*/, int /*line*/, unsigned /*level*/,
                        const char* /*prefix1*/, const char* /*prefix2*/, const char* /*prefix3*/) {
}
