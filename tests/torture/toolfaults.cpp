// SPDX-License-Identifier: MIT
#include "tests/torture/toolfaults.h"

#include <csignal>

namespace torture {

namespace {

std::vector<ToolFault> makeFaults() {
    std::vector<ToolFault> faults = {
        {"missing", ToolFault::eMissing, true, false},
        {"not-executable", ToolFault::eNotExecutable, true, false},
        {"silent", ToolFault::eInStub, false, true},
        {"flood", ToolFault::eInStub, false, false},
        {"endless-line", ToolFault::eInStub, false, false},
        {"close-early", ToolFault::eInStub, false, true},
        {"grandchild-0", ToolFault::eInStub, false, false},
        {"grandchild-1", ToolFault::eInStub, true, false},
    };
    for (const int signal : {SIGKILL, SIGSEGV, SIGTERM, SIGPIPE, SIGABRT, SIGINT}) {
        for (const char* const when : {"die-", "half-", "then-die-"}) {
            faults.push_back({when + std::to_string(signal), ToolFault::eInStub, true, false});
        }
    }
    for (const int status :
         {1, 2, 3, 4, 5, 8, 16, 20, 32, 63, 64, 100, 126, 127, 128, 137, 143, 192, 254, 255}) {
        for (const char* const when : {"exit-", "then-exit-"}) {
            faults.push_back({when + std::to_string(status), ToolFault::eInStub, true, false});
        }
    }
    return faults;
}

}  // namespace

const std::vector<ToolFault>& toolFaults() {
    static const std::vector<ToolFault> faults = makeFaults();
    return faults;
}

int toolFaultFrom(const std::string& name) {
    const std::vector<ToolFault>& faults = toolFaults();
    for (std::size_t i = 0; i < faults.size(); ++i) {
        if (faults[i].mName == name) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

}  // namespace torture
