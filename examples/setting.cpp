// SPDX-License-Identifier: MIT
//
// Keeps a setting over the next start of the box: tells its value and, when a new one is given,
// changes it. An empty value removes it.
//
//     setting NAME [VALUE]
#include <System/bootvarsmanager/sysBootVarsManager.h>
#include <System/sysResourceLock.h>
#include <System/system.h>
#include <base/outputlevel.h>

#include <cstdio>

namespace {

// The text is cut to the room that it gets; 0 is always at its end.
constexpr int kRoom = 256;

void tell(sysBootVarsManager& variables, const char* name) {
    char value[kRoom];
    if (variables.getVarS(name, value, kRoom)) {
        std::printf("%s is \"%s\"\n", name, value);
    } else {
        // Also when no setting can be read at all: there may be no valid environment yet.
        std::printf("%s is not set\n", name);
    }
}

// True when the value will be there after a power cut in the next moment.
bool change(sysBootVarsManager& variables, const char* name, const char* value) {
    if (!variables.setVarS(name, value)) {
        std::fprintf(stderr, "setting: not saved\n");
        return false;
    }
    std::printf("saved\n");
    return true;
}

// Every call reads the file on the software partition, and mounts that for as long as it takes:
// this needs root. Calls of two processes or threads that overlap can lose a setting, so all of
// them hold this lock.
bool run(const char* name, const char* value) {
    constexpr unsigned longestWait = 5000;  // milliseconds
    sysResourceLock lock(sysResourceLock::eResBootVariables, "setting");
    if (!lock.lock(sysResourceLock::eMoExclusive, longestWait)) {
        std::fprintf(stderr, "setting: %s\n", lock.reason().c_str());
        return false;
    }
    sysBootVarsManager& variables = *getSystem()->mpBootVarsManager;
    tell(variables, name);
    bool good = true;
    if (value != nullptr) {
        good = change(variables, name, value);
        tell(variables, name);
    }
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: setting NAME [VALUE]\n");
        return 2;
    }
    // The library's messages would come between our lines. What the kernel refuses is told on
    // standard error all the same.
    kestrova_debug_output_level = 0;
    SystemMinimalInit();
    const bool good = run(argv[1], argc == 3 ? argv[2] : nullptr);
    SystemTerm();
    return good ? 0 : 1;
}
