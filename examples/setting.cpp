// SPDX-License-Identifier: MIT
//
// Keeps a setting over the next start of the box: tells its value and, when a new one is given,
// changes it. An empty value removes it.
//
//     setting NAME [VALUE]
#include <System/bootvarsmanager/sysBootVarsManager.h>
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
    // Every call reads the file on the software partition, and mounts that for as long as it takes:
    // this needs root. One at a time may call, of all threads and processes of the box.
    sysBootVarsManager& variables = *getSystem()->mpBootVarsManager;

    tell(variables, argv[1]);
    bool good = true;
    if (argc == 3) {
        good = change(variables, argv[1], argv[2]);
        tell(variables, argv[1]);
    }

    SystemTerm();
    return good ? 0 : 1;
}
