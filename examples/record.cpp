// SPDX-License-Identifier: MIT
//
// Records to the drive, here zeros in place of a broadcast, and shows how far it is.
//
//     record NAME MEGABYTES
#include <System/drivemanager/drivemanager.h>
#include <System/sysResourceLock.h>
#include <System/system.h>
#include <base/outputlevel.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

int failed(const char* why) {
    std::fprintf(stderr, "record: %s\n", why);
    return 1;
}

// Mounting runs in a thread of the library, which we ask how far it is. False when it has failed.
bool started(sysDVRDrive& drive) {
    if (!drive.start()) {
        return false;
    }
    sysDVRDrive::Status status = sysDVRDrive::eStStarting;
    int progress = 0;  // in per cent
    for (drive.getStatus(&status, &progress); status == sysDVRDrive::eStStarting;
         drive.getStatus(&status, &progress)) {
        std::fprintf(stderr, "\rstarting %3d%%", progress);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::fprintf(stderr, "\rstarting %3d%%\n", progress);
    return status == sysDVRDrive::eStStarted;
}

// Started, the drive has ordinary file systems.
bool written(const std::string& path, int megabytes) {
    std::ofstream recording(path, std::ios::binary | std::ios::trunc);
    const std::vector<char> piece(1024 * 1024);
    for (int done = 0; done < megabytes && recording; ++done) {
        recording.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        std::fprintf(stderr, "\rrecording %d of %d MiB", done + 1, megabytes);
    }
    std::fprintf(stderr, "\n");
    recording.close();
    return recording.good();
}

// Drive up, record, drive down.
int record(sysDVRDrive* drive, const std::string& name, int megabytes) {
    if (drive == nullptr) {
        return failed("there is no recording drive");
    }
    sysDVRDrive::Status status = sysDVRDrive::eStNone;
    drive->getStatus(&status, nullptr);
    if (status != sysDVRDrive::eStReady) {
        return failed("the drive is not ready; a new one has to be formatted first");
    }
    if (!started(*drive)) {
        (void)drive->init();  // one of its two file systems may be mounted: this unmounts it
        return failed("the drive could not be started");
    }
    // On the file system that freeMB() measures.
    const std::string path = std::string(drive->recordingDirectory()) + "/" + name;
    const bool good = written(path, megabytes);
    // What is mounted stays mounted after our end unless we stop the drive. This writes all that is
    // still in memory, and fails while a file below /dvr is open.
    if (!drive->stop()) {
        return failed("the drive is busy and stays mounted");
    }
    return good ? 0 : failed("the recording could not be written");
}

}  // namespace

int main(int argc, char** argv) {
    const int megabytes = argc == 3 ? std::atoi(argv[2]) : 0;
    if (megabytes <= 0) {
        std::fprintf(stderr, "usage: record NAME MEGABYTES\n");
        return 2;
    }
    kestrova_debug_output_level = 0;  // our own display only
    // Another process's start of the system would unmount the drive under our recording. All
    // processes of a box therefore hold this lock while their system is up.
    sysResourceLock lock(sysResourceLock::eResRecordingDrive, "record");
    if (!lock.tryLock()) {
        return failed(lock.reason().c_str());
    }
    (void)lock.publish("recording", 0);  // 'kestrova drive status' shows it
    // The full system looks for the drive, for as long as a disk needs to spin up. Nothing is
    // mounted or formatted by that. It needs root.
    SystemInit();
    const int status = record(getSystem()->mpDriveManager->getDVRDrive(), argv[1], megabytes);
    SystemTerm();
    return status;
}
