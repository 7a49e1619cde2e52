// SPDX-License-Identifier: MIT
/// @file
/// Decides whether the box has a recording drive, and owns it.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_DRIVEMANAGER_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_DRIVEMANAGER_H

#include "System/drivemanager/dvrdrive.h"
#include "base/export.h"

/// Owner of the recording drive. The system object creates one, starts it and stops it.
///
/// Threads: no lock. The thread that starts and stops the system calls start(), stop() and
/// detectDrives(); any thread may call the two queries while the manager is started. Other
/// processes are not excluded: by convention the application holds a sysResourceLock of
/// eResRecordingDrive, exclusively, from before start() until after stop().
class KESTROVA_EXPORT sysDriveManager {
public:
    /// Not started, no drive.
    sysDriveManager();
    /// Calls stop().
    ~sysDriveManager();
    sysDriveManager(const sysDriveManager&) = delete;
    sysDriveManager& operator=(const sysDriveManager&) = delete;

    /// Detects the drive, unless the manager is already started. Blocks while the drive is
    /// detected: for a disk's spin-up and a few tools. A missing or unusable drive is not a
    /// failure: there is then no drive.
    void start();
    /// If started, shuts and frees the drive. Mounted file systems stay mounted, so the caller that
    /// started the drive stops it first. Blocks until the drive's worker, if any, has exited.
    void stop();

    /// @return true if the manager is started and there is a recording drive
    bool hasDVRDrive() const { return mStarted && mDVRDrive != nullptr; }
    /// @return the recording drive, or null if there is none or the manager is not started; owned
    /// by the manager, valid until stop() or detectDrives()
    sysDVRDrive* getDVRDrive() const { return mStarted ? mDVRDrive : nullptr; }

    /// Looks for the drive, unmounts its file systems with its init(), and keeps it if init()
    /// succeeds. If there is no drive, or one of its file systems is busy, logs "No DVR Drive
    /// Detected" at level 1. Never formats or mounts. Blocks as long as start(), which calls it,
    /// and until the worker of a previous drive has exited. That drive is freed, so its pointer
    /// must no longer be used.
    void detectDrives();

private:
    KESTROVA_LOCAL void freeDrive();

    bool mStarted = false;
    bool mDetected = false;  // a detection has been attempted; read only in a debugger
    sysDVRDrive* mDVRDrive = nullptr;
};

#endif
