// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_CRASH_SCENARIOS_H
#define KESTROVA_TESTS_CRASH_SCENARIOS_H

#include <map>
#include <string>
#include <vector>

#include "tests/crash/memorydisk.h"

namespace crash {

using Variables = std::map<std::string, std::string>;

/// A change of one variable; an empty value removes it.
struct Change {
    const char* mName;
    std::string mKey;
    std::string mValue;
};

/// How the disk is before a change.
struct Scenario {
    std::string mName;
    Disk mDisk;
    Mounted mMounted;
};

std::vector<Scenario> scenarios();
std::vector<Change> changes();

}  // namespace crash

#endif
