// SPDX-License-Identifier: MIT
//
// The boot variables against bare programs. Runs where the software partition, mounted read-write
// on /boot-sw, holds a boot environment with the variable NAME:
//   kestrova-bench-bootvars set|set-small|get|get-small ROUNDS NAME
//   kestrova-bench-bootvars processes|processes-memory ROUNDS NAME KESTROVA CONFIG   whole
//   processes; CONFIG is the
//                                                                   one of fw_setenv
//   kestrova-bench-bootvars repeat set|get TIMES NAME               only that, to count the calls
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "bench/bare.h"
#include "bench/barebootvars.h"
#include "bench/figure.h"

namespace {

constexpr char kPrimary[] = "/boot-sw/boot_env";
constexpr char kValue[] = "a value of the size that others have, too: 50 characters";

// Volatile, so that the optimiser cannot remove the calls.
volatile unsigned long keptLength = 0;

void setVariable(const char* name) {
    if (!getSystem()->mpBootVarsManager->setVarS(name, kValue)) {
        bench::fail("setVarS");
    }
}

void getVariable(const char* name) {
    char value[256];
    if (!getSystem()->mpBootVarsManager->getVarS(name, value, sizeof(value))) {
        bench::fail("getVarS");
    }
    keptLength = static_cast<unsigned long>(value[0]);
}

const char* device() {
    return BlockdeviceConfig::GetInstance()->GetSoftwarePartitionMountDevice();
}

void compareSet(bench::Report& report, int rounds, const char* name, const std::string& suffix) {
    setVariable(name);
    std::ifstream file(kPrimary, std::ios::binary);
    const std::string image{std::istreambuf_iterator<char>(file), {}};
    const bench::Times times = bench::measure(
        rounds, 1, [name] { setVariable(name); },
        [&] { bench::replaceEnvironment("/boot-sw", device(), image); });
    report.figure("boot-set" + suffix, times.mSubject / times.mControl, times);
}

void compareGet(bench::Report& report, int rounds, const char* name, const std::string& suffix) {
    constexpr int calls = 50;
    const auto get = [name] { getVariable(name); };
    const auto read = [name] { keptLength = bench::readVariable(kPrimary, name); };
    const bench::Times times = bench::measure(rounds, calls, get, read);
    report.figure("boot-get" + suffix, times.mSubject / times.mControl, times);
    const bench::Times mounted = bench::measure(rounds, calls, get, [&read] {
        bench::findMount(device());
        read();
    });
    report.figure("boot-get-mounts" + suffix, mounted.mSubject / mounted.mControl, mounted);
}

void compareProcesses(bench::Report& report, int rounds, const char* name, char** tools,
                      const std::string& suffix) {
    const char* const ours[] = {tools[0], "vars", "set", name, kValue, nullptr};
    const char* const theirs[] = {"/usr/bin/fw_setenv", "-c", tools[1], name, kValue, nullptr};
    const bench::Times times = bench::measure(
        rounds, 1, [&] { (void)bench::runTool(ours, 0); },
        [&] { (void)bench::runTool(theirs, 0); });
    report.figure("boot-set-process" + suffix, times.mSubject / times.mControl, times);
}

/// Returns the dash and the rest, which only name the figure.
std::string suffixOf(const std::string& what) {
    const std::size_t dash = what.find('-');
    return dash == std::string::npos ? "" : what.substr(dash);
}

int numberOf(const char* text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

bool starts(const std::string& text, const char* with) {
    return text.rfind(with, 0) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 3 ? argv[1] : "";
    bench::Report report;
    SystemMinimalInit();
    if (what == "repeat" && argc == 5) {
        for (int left = numberOf(argv[3]); left > 0; --left) {
            (std::strcmp(argv[2], "set") == 0 ? setVariable : getVariable)(argv[4]);
        }
    } else if (starts(what, "processes") && argc == 6) {
        compareProcesses(report, numberOf(argv[2]), argv[3], argv + 4, suffixOf(what));
    } else if (starts(what, "set")) {
        compareSet(report, numberOf(argv[2]), argv[3], suffixOf(what));
    } else if (starts(what, "get")) {
        compareGet(report, numberOf(argv[2]), argv[3], suffixOf(what));
    } else {
        bench::fail("see bench/bootvars.cpp for the arguments");
    }
    SystemTerm();
    return 0;
}
