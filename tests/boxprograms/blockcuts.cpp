// SPDX-License-Identifier: MIT
//
// Both sides of tests/box/blockcuts.py.
//   block-cuts record    on the box: makes the changes listed on standard input, one per line, and
//                        marks the start and the end of each on the disk. A mark is an ordinary
//                        write, so the log of all writes shows when each save was acknowledged.
//     mount none|ro|rw        sets the mount state of the software partition for the next changes
//     set KEY LENGTH LETTER   sets a value of LENGTH letters; a length of 0 removes the variable
//     damage                  truncates the primary file; the partition is mounted rw
//   block-cuts mark DISK TEXT   on the box: writes only such a mark
//   block-cuts read      on the host: for each line "MAJOR MINOR" of a block device with a software
//                        partition, prints what the library reads, and the files unchanged, then
//                        "done". Bytes are in hexadecimal digits.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "base/outputlevel.h"

namespace {

const char kDisk[] = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0";
const std::string kPrimary = "/boot-sw/boot_env";
const std::string kBackup = "/boot-sw/boot_env.bkp";
constexpr std::size_t kSector = 512;
constexpr off_t kMarkOffset = 64 * kSector;  // before the first partition

[[noreturn]] void fail(const std::string& what) {
    std::perror(what.c_str());
    std::exit(1);
}

/// Writes a sector with direct I/O, so that it is on the disk when the function returns.
void mark(const std::string& text, const char* path = kDisk) {
    alignas(4096) static char sector[kSector];
    std::memset(sector, 0, sizeof(sector));
    (void)std::snprintf(sector, sizeof(sector), "KVMARK %s\n", text.c_str());
    const int disk = ::open(path, O_WRONLY | O_DIRECT | O_CLOEXEC);
    if (disk < 0 || ::pwrite(disk, sector, kSector, kMarkOffset) != kSector) {
        fail("mark");
    }
    (void)::close(disk);
}

const char* device() {
    return BlockdeviceConfig::GetInstance()->GetSoftwarePartitionMountDevice();
}

void mountAs(const std::string& mode) {
    (void)::umount("/boot-sw");
    const unsigned long flags = mode == "ro" ? MS_RDONLY : 0;
    if (mode != "none" && ::mount(device(), "/boot-sw", "ext3", flags, nullptr) != 0) {
        fail("mount");
    }
}

void set(std::istringstream& words) {
    std::string key;
    std::size_t length = 0;
    std::string letter;
    words >> key >> length >> letter;
    const std::string value(length, letter.at(0));
    if (!getSystem()->mpBootVarsManager->setVarS(key.c_str(), value.c_str())) {
        fail("setVarS");
    }
}

void damage() {
    constexpr off_t left = 20;
    if (::truncate(kPrimary.c_str(), left) != 0) {
        fail("truncate");
    }
    ::sync();
}

int record() {
    std::string line;
    for (int number = 0; std::getline(std::cin, line); ++number) {
        std::istringstream words(line);
        std::string verb;
        std::string mode;
        words >> verb;
        mark("begin " + std::to_string(number));
        if (verb == "mount") {
            words >> mode;
            mountAs(mode);
        } else if (verb == "set") {
            set(words);
        } else {
            damage();
        }
        mark("end " + std::to_string(number));
    }
    return 0;
}

std::string hex(const std::string& bytes) {
    const char* const digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += digits[value / 16];
        text += digits[value % 16];
    }
    return text;
}

void printFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (file) {
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        std::cout << "file " << path.substr(path.rfind('/') + 1) << " " << hex(bytes) << "\n";
    }
}

void readDisk(dev_t number) {
    (void)::unlink(device());
    if (::mknod(device(), S_IFBLK | 0600, number) != 0) {
        fail("mknod");
    }
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    (void)getSystem()->mpBootVarsManager->getVarList(names, values);
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::cout << "variable " << hex(names[i]) << " " << hex(values[i]) << "\n";
    }
    if (::mount(device(), "/boot-sw", "ext3", MS_RDONLY, nullptr) != 0) {
        std::cout << "not mounted\n";
    } else {
        printFile(kPrimary);
        printFile(kBackup);
        (void)::umount("/boot-sw");
    }
    std::cout << "done" << std::endl;
}

int readAll() {
    unsigned major = 0;
    unsigned minor = 0;
    while (std::cin >> major >> minor) {
        readDisk(makedev(major, minor));
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "mark" && argc == 4) {
        mark(argv[3], argv[2]);
        return 0;
    }
    kestrova_debug_output_level = 0;
    SystemMinimalInit();
    if (what == "record") {
        return record();
    }
    if (what == "read") {
        return readAll();
    }
    std::cerr << "usage: block-cuts record|read|mark DISK TEXT\n";
    return 2;
}
