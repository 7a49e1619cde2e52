// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_OUTPUTLEVEL_H
#define KESTROVA_TESTS_SUPPORT_OUTPUTLEVEL_H

#include "base/outputlevel.h"

namespace tests {

/// Sets the verbosity for a scope.
class OutputLevel {
public:
    explicit OutputLevel(std::uint32_t level) : mBefore(kestrova_debug_output_level) {
        kestrova_debug_output_level = level;
    }
    ~OutputLevel() { kestrova_debug_output_level = mBefore; }
    OutputLevel(const OutputLevel&) = delete;
    OutputLevel& operator=(const OutputLevel&) = delete;

private:
    std::uint32_t mBefore;
};

}  // namespace tests

#endif
