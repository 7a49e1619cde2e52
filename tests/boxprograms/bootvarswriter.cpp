// SPDX-License-Identifier: MIT
//
// An application that changes a boot variable as long as the machine runs. On its serial port it
// writes "ready", reads a line "MODE" (the mount state of the software partition: none, ro or rw),
// writes what it found, "found N" or a problem, and then each number whose save has returned true.
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "base/outputlevel.h"
#include "serialport.h"

namespace {

constexpr int kLongest = 65536;
const char kCounter[] = "counter";
const char kConstant[] = "constant";
const char kConstantValue[] = "set once";

/// The number, followed by a text of varying length, from none to several blocks.
std::string valueOf(unsigned long number) {
    return std::to_string(number) + ":" +
           std::string(number * 397 % 6000, static_cast<char>('a' + number % 26));
}

std::string get(const char* name) {
    std::string value(kLongest, '\0');
    if (!getSystem()->mpBootVarsManager->getVarS(name, value.data(), kLongest)) {
        return "";
    }
    return value.c_str();
}

/// Reads the next line, without its end.
std::string readLine(int port) {
    std::string line;
    for (char c = '\0'; ::read(port, &c, 1) == 1 && c != '\n';) {
        line += c;
    }
    return line;
}

bool mountFor(const std::string& mode) {
    BlockdeviceConfig& table = *BlockdeviceConfig::GetInstance();
    return mode == "none" ||
           ::mount(table.GetSoftwarePartitionMountDevice(), table.GetSoftwarePartitionMountPoint(),
                   table.GetSoftwarePartitionFilesystem(), mode == "ro" ? MS_RDONLY : 0,
                   nullptr) == 0;
}

/// Reports what is stored. Returns the number to continue from.
unsigned long check(int port) {
    const std::string value = get(kCounter);
    const unsigned long number = std::strtoul(value.c_str(), nullptr, 10);
    const std::string constant = get(kConstant);
    if (value.empty() && (constant.empty() || constant == kConstantValue)) {
        dprintf(port, constant.empty() ? "found nothing\n" : "found 0\n");
    } else if (value != valueOf(number) || constant != kConstantValue) {
        dprintf(port, "broken: %.40s\n", value.c_str());
    } else {
        dprintf(port, "found %lu\n", number);
    }
    return number;
}

void write(int port, unsigned long number) {
    sysBootVarsManager& vars = *getSystem()->mpBootVarsManager;
    if (get(kConstant).empty() && !vars.setVarS(kConstant, kConstantValue)) {
        dprintf(port, "not saved\n");
        return;
    }
    while (vars.setVarS(kCounter, valueOf(++number).c_str())) {
        dprintf(port, "%lu\n", number);
    }
    dprintf(port, "not saved\n");
}

}  // namespace

int main(int argc, char** argv) {
    const int port = argc == 2 ? openPort(argv[1]) : -1;
    if (port < 0) {
        std::fprintf(stderr, "usage: bootvars-writer PORT\n");
        return 2;
    }
    kestrova_debug_output_level = 0;
    SystemMinimalInit();
    dprintf(port, "ready\n");
    if (!mountFor(readLine(port))) {
        dprintf(port, "not mounted\n");
        return 1;
    }
    write(port, check(port));
    return 1;
}
