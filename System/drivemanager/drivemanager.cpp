// SPDX-License-Identifier: MIT
#include "System/drivemanager/drivemanager.h"

#include <utility>

#include "base/cancelguard.h"
#include "base/log/log.h"

sysDriveManager::sysDriveManager() = default;

sysDriveManager::~sysDriveManager() {
    // Waiting for the drive's worker is a cancellation point, and a destructor must not be unwound.
    const base::CancelGuard guard;
    stop();
    freeDrive();
}

void sysDriveManager::start() {
    if (!mStarted) {
        detectDrives();
        mStarted = true;
    }
}

void sysDriveManager::stop() {
    if (mStarted) {
        if (mDVRDrive != nullptr) {
            (void)mDVRDrive->shut();
        }
        freeDrive();
        mStarted = false;
    }
}

void sysDriveManager::freeDrive() {
    delete std::exchange(mDVRDrive, nullptr);
}

void sysDriveManager::detectDrives() {
    mDetected = true;
    freeDrive();
    mDVRDrive = new sysDVRDrive;
    if (mDVRDrive->init()) {
        return;
    }
    base::logMessage(1, "No DVR Drive Detected\n");
    freeDrive();
}
