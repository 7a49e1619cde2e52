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
        eMissing,        ///< there is no such file
        eNotExecutable,  ///< there is one that cannot be executed
        eInStub,         ///< the stub does what its name says
    };
    std::string mName;
    Act mAct;
    bool mFails;  ///< the tool cannot end with status 0
    bool mLies;   ///< it ends with status 0 and has not done its work
};

const std::vector<ToolFault>& toolFaults();
/// Its index; -1 for a name that is none.
int toolFaultFrom(const std::string& name);

}  // namespace torture

#endif
