// SPDX-License-Identifier: MIT
//
// How a tool of the box misbehaves.
#ifndef KESTROVA_TESTS_TORTURE_TOOLFAULTS_H
#define KESTROVA_TESTS_TORTURE_TOOLFAULTS_H

#include <string>
#include <vector>

namespace torture {

struct ToolFault {
    enum Act {
        eMissing,        ///< the file does not exist
        eNotExecutable,  ///< the file cannot be executed
        eInStub,         ///< the stub misbehaves as its name says
    };
    std::string mName;
    Act mAct;
    bool mFails;  ///< the tool cannot exit with status 0
    bool mLies;   ///< it exits with status 0 without having done its work
};

const std::vector<ToolFault>& toolFaults();
/// Returns its index; -1 for an unknown name.
int toolFaultFrom(const std::string& name);

}  // namespace torture

#endif
