// SPDX-License-Identifier: MIT
//
// A drive "/dev/sda" for the tests: a file that answers like a disk, and the partition tool's
// listing of it.
#ifndef KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_FAKEDRIVE_H
#define KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_FAKEDRIVE_H

#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/sg.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "System/drivemanager/harddrive.h"
#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"

namespace tests {

/// Makes protected members of a drive accessible.
class OpenDrive : public sysHardDrive {
public:
    using sysHardDrive::mCapacity;
    using sysHardDrive::mDevice;
    using sysHardDrive::mModel;
    using sysHardDrive::mPartitions;
    using sysHardDrive::mSerial;
};

inline void answerCapacity(unsigned long long bytes) {
    failingcalls::answerIoctl(BLKGETSIZE64, [bytes](void* argument) {
        *static_cast<unsigned long long*>(argument) = bytes;
        return 0;
    });
}

inline void refuse(unsigned long request) {
    failingcalls::answerIoctl(request, [](void* /*argument*/) {
        errno = ENOTTY;
        return -1;
    });
}

/// Sets the texts of identify data; the rest of each field is zero.
inline void answerAta(const std::string& model, const std::string& serial) {
    failingcalls::answerIoctl(HDIO_GET_IDENTITY, [model, serial](void* argument) {
        char* const identity = static_cast<char*>(argument);
        std::memset(identity, 0, 512);
        std::memcpy(identity + 54, model.data(), model.size());
        std::memcpy(identity + 20, serial.data(), serial.size());
        return 0;
    });
}

/// Sets a drive of 80 GB that answers like an ATA disk.
inline void answerAsDrive() {
    answerAta("MODEL", "SERIAL");
    answerCapacity(80026361856ULL);
    writeFile("/dev/sda", std::string(512, '\0'));
}

inline Role tableTool() {
    return Role({"/sbin/sfdisk", "-d", "/dev/sda"});
}

/// Returns a line of the listing.
inline std::string tableLine(const std::string& name, unsigned long sectors,
                             const std::string& type) {
    return name + " : start=       63, size=" + std::to_string(sectors) + ", Id=" + type + "\n";
}

}  // namespace tests

#endif
