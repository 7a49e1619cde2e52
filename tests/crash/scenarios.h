// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_CRASH_SCENARIOS_H
#define KESTROVA_TESTS_CRASH_SCENARIOS_H

#include <map>
#include <string>
#include <vector>

#include "tests/crash/memorydisk.h"

namespace crash {

using Variables = std::map<std::string, std::string>;

/// A change of variables in one save; an empty value removes a variable.
struct Change {
    const char* mName;
    Variables mSettings;
    bool mCreates = false;  ///< an environment without variables replaces everything
};

/// The state of the disk before a change.
struct Scenario {
    std::string mName;
    Disk mDisk;
    Mounted mMounted;
};

std::vector<Scenario> scenarios();
/// `creating` is for an environment file only.
std::vector<Change> changes(bool creating);

}  // namespace crash

#endif
