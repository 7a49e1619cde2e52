// SPDX-License-Identifier: MIT
//
// Apart from their callers, so that a breakpoint or a test's own hook catches every call.
#include "base/log/log.h"

void fassert_point_fired() {}

void fcheck_point_fired(const char* /*file*/, int /*line*/, unsigned /*level*/,
                        const char* /*prefix1*/, const char* /*prefix2*/, const char* /*prefix3*/) {
}
