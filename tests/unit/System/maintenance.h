// SPDX-License-Identifier: MIT
//
// Shared by the tests of the maintenance utilities.
#ifndef KESTROVA_TESTS_SYSTEM_MAINTENANCE_H
#define KESTROVA_TESTS_SYSTEM_MAINTENANCE_H

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <map>
#include <string>
#include <vector>

#include "System/sysSuperUserUtils.h"
#include "tests/support/sandbox.h"

namespace tests {

using Words = std::vector<std::string>;

/// For operations that do not use the boot variables.
inline sysSuperUserUtils utilities() {
    return sysSuperUserUtils(nullptr);
}

inline void makeNode(const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/'));
    if (folder != "/dev") {
        (void)::mkdir(folder.c_str(), 0755);
    }
    writeFile(path, "");
}

/// Waits for every process of the sandbox: orphans are children of this process.
inline int reapAll() {
    int reaped = 0;
    while (::waitpid(-1, nullptr, 0) > 0) {
        ++reaped;
    }
    return reaped;
}

inline Words gettyOn(const std::string& device) {
    return {"/sbin/getty", "-L", device, "115200", "vt100"};
}

/// Checks that a getty inherits nothing from its caller.
inline void expectOnItsOwn(const ToolRun& run) {
    EXPECT_TRUE(run.mLeadsSession);
    EXPECT_EQ("/", run.mDirectory);
    EXPECT_EQ("0000000000000000 0000000000000000", run.mSignals);
    const std::map<int, std::string> streams = {
        {0, "/dev/null rw"}, {1, "/dev/null rw"}, {2, "/dev/null rw"}};
    EXPECT_EQ(streams, run.mDescriptors);
}

}  // namespace tests

#endif
