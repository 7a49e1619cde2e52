// SPDX-License-Identifier: MIT
/// @file
/// Decides whether the box has a recording drive, and owns it.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_DRIVEMANAGER_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_DRIVEMANAGER_H

#include "System/drivemanager/dvrdrive.h"
#include "base/export.h"

/// Owner of the recording drive. The system object makes one, starts it and stops it.
///
/// Threads: no lock. start(), stop() and detectDrives() belong to the thread that brings the system
/// up and down; the two queries may be called from any thread while it is started. Other processes
/// are not kept away: by convention a sysResourceLock of eResRecordingDrive is held, exclusively,
/// from before start() until after stop().
class KESTROVA_EXPORT sysDriveManager {
public:
    /// Not started, no drive.
    sysDriveManager();
    /// As stop().
    ~sysDriveManager();
    sysDriveManager(const sysDriveManager&) = delete;
    sysDriveManager& operator=(const sysDriveManager&) = delete;

    /// Detects the drive, unless already started. Blocks for the detection: a disk's spin-up and a
    /// few tools. A drive that is missing or cannot be used is no failure: there is none then.
    void start();
    /// When started: shuts and frees the drive. What is mounted stays mounted: whoever started the
    /// drive stops it first. Blocks until the drive's worker, if any, has ended.
    void stop();

    /// @return true when started and there is a recording drive
    bool hasDVRDrive() const { return mStarted && mDVRDrive != nullptr; }
    /// @return the recording drive, or null when there is none or the manager is not started; owned
    /// here, valid until stop() or detectDrives()
    sysDVRDrive* getDVRDrive() const { return mStarted ? mDVRDrive : nullptr; }

    /// Looks for the drive and keeps it when its init() succeeds, which unmounts it; otherwise,
    /// also when one of its file systems is busy, logs at level 1 "No DVR Drive Detected". Never
    /// formats or mounts. Blocks as start(), which calls it, and until the worker of a drive found
    /// before has ended: that drive is freed, so nobody may use it any more.
    void detectDrives();

private:
    KESTROVA_LOCAL void freeDrive();

    bool mStarted = false;
    bool mDetected = false;  // a detection has been tried; kept for the debugger
    sysDVRDrive* mDVRDrive = nullptr;
};

#endif
