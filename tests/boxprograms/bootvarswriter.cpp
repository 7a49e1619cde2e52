// SPDX-License-Identifier: MIT
//
// An application that changes a boot variable for as long as the machine runs. On its serial port
// it says "ready", takes a line "MODE" (how the software partition is to be mounted meanwhile:
// none, ro or rw), tells what it found, "found N" or what is wrong, and then each number whose save
// has returned true.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "base/outputlevel.h"

namespace {

constexpr int kLongest = 65536;
const char kCounter[] = "counter";
const char kConstant[] = "constant";
const char kConstantValue[] = "set once";

/// The number, and behind it a text of a length of its own, from none to several blocks.
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

/// The plain line of bytes that the port is, without the terminal's rewriting.
std::FILE* openPort(const char* path) {
    const int port = ::open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings = {};
    if (port >= 0 && ::tcgetattr(port, &settings) == 0) {
        ::cfmakeraw(&settings);
        (void)::tcsetattr(port, TCSANOW, &settings);
    }
    return port >= 0 ? ::fdopen(port, "r+") : nullptr;
}

bool mountFor(const std::string& mode) {
    BlockdeviceConfig& table = *BlockdeviceConfig::GetInstance();
    (void)::mkdir("/boot-sw", 0755);
    return mode == "none" ||
           ::mount(table.GetSoftwarePartitionMountDevice(), table.GetSoftwarePartitionMountPoint(),
                   table.GetSoftwarePartitionFilesystem(), mode == "ro" ? MS_RDONLY : 0,
                   nullptr) == 0;
}

/// Tells what is there; the number to go on from.
unsigned long check(std::FILE* port) {
    const std::string value = get(kCounter);
    const unsigned long number = std::strtoul(value.c_str(), nullptr, 10);
    const std::string constant = get(kConstant);
    if (value.empty() && (constant.empty() || constant == kConstantValue)) {
        std::fprintf(port, constant.empty() ? "found nothing\n" : "found 0\n");
    } else if (value != valueOf(number) || constant != kConstantValue) {
        std::fprintf(port, "broken: %.40s\n", value.c_str());
    } else {
        std::fprintf(port, "found %lu\n", number);
    }
    return number;
}

void write(std::FILE* port, unsigned long number) {
    sysBootVarsManager& vars = *getSystem()->mpBootVarsManager;
    if (get(kConstant).empty() && !vars.setVarS(kConstant, kConstantValue)) {
        std::fprintf(port, "not saved\n");
        return;
    }
    while (vars.setVarS(kCounter, valueOf(++number).c_str())) {
        std::fprintf(port, "%lu\n", number);
    }
    std::fprintf(port, "not saved\n");
}

}  // namespace

int main(int argc, char** argv) {
    std::FILE* const port = argc == 2 ? openPort(argv[1]) : nullptr;
    if (port == nullptr) {
        std::fprintf(stderr, "usage: bootvars-writer PORT\n");
        return 2;
    }
    (void)std::setvbuf(port, nullptr, _IONBF, 0);
    kestrova_debug_output_level = 0;
    SystemMinimalInit();
    std::fprintf(port, "ready\n");
    char mode[16] = {};
    if (std::fscanf(port, "%15s", mode) != 1 || !mountFor(mode)) {
        std::fprintf(port, "not mounted\n");
        return 1;
    }
    write(port, check(port));
    return 1;
}
