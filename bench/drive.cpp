// SPDX-License-Identifier: MIT
//
// Drive management against the bare tools and system calls. Runs in the virtual box, on its
// recording drive:
//   kestrova-bench-drive system ROUNDS              start and end of the system; /dev/sda has two
//                                                   partitions with XFS
//   kestrova-bench-drive xfs|ext3 ROUNDS PARTITION  a format, which destroys what is there
#include <cstdlib>
#include <cstring>
#include <string>

#include "System/drivemanager/drivemanager.h"
#include "System/system.h"
#include "bench/bare.h"
#include "bench/figure.h"

namespace {

constexpr char kLabel[] = "bench";

void startAndEndSystem() {
    SystemInit();
    sysDVRDrive* const drive = getSystem()->mpDriveManager->getDVRDrive();
    if (drive == nullptr || drive->numPartitions() != 2 ||
        drive->getPartition(0)->label() == nullptr) {
        bench::fail("the recording drive was not found as it should be");
    }
    SystemTerm();
}

bench::Times measureSystem(int rounds) {
    return bench::measure(rounds, 1, startAndEndSystem, [] { bench::detectDrive("/dev/sda"); });
}

bench::Times measureFormat(int rounds, const char* path, const char* const* command,
                           bool (sysPartition::*format)(const char*)) {
    constexpr int typeLinux = 0x83;
    sysPartition partition;
    if (!partition.init(path, 0, typeLinux)) {
        bench::fail(path);
    }
    const auto subject = [&] {
        if (!(partition.*format)(kLabel)) {
            bench::fail("format");
        }
    };
    return bench::measure(rounds, 1, subject,
                          [&] { (void)bench::runTool(command, bench::kLowPriority); });
}

bench::Times measureXfs(int rounds, const char* path) {
    const char* const command[] = {"/sbin/mkfs.xfs", "-L", kLabel, "-f", "-l",
                                   "lazy-count=0",   path, nullptr};
    return measureFormat(rounds, path, command, &sysPartition::xfs_format);
}

bench::Times measureExt3(int rounds, const char* path) {
    const char* const command[] = {"/sbin/mkfs.ext3", "-L", kLabel, "-m", "0", "-i",
                                   "2097152",         path, nullptr};
    return measureFormat(rounds, path, command, &sysPartition::ext3_format);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 2 ? argv[1] : "";
    const int rounds = argc > 2 ? static_cast<int>(std::strtol(argv[2], nullptr, 10)) : 0;
    if (rounds < 1 || argc != (what == "system" ? 3 : 4)) {
        (void)std::fprintf(stderr, "usage: %s system ROUNDS | xfs|ext3 ROUNDS PARTITION\n",
                           argv[0]);
        return 2;
    }
    bench::Report report;
    if (what == "system") {
        const bench::Times times = measureSystem(rounds);
        report.figure("system-init-term", times.mSubject / times.mControl, times);
    } else if (what == "xfs") {
        const bench::Times times = measureXfs(rounds, argv[3]);
        report.figure("xfs-format", times.mSubject / times.mControl, times);
    } else if (what == "ext3") {
        const bench::Times times = measureExt3(rounds, argv[3]);
        report.figure("ext3-format", times.mSubject / times.mControl, times);
    } else {
        (void)std::fprintf(stderr, "%s: not a measurement\n", argv[1]);
        return 2;
    }
    return 0;
}
