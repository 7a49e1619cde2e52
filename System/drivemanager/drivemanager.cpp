// SPDX-License-Identifier: MIT
#include "System/drivemanager/drivemanager.h"

#include <memory>
#include <utility>

#include "base/log.h"

sysDriveManager::sysDriveManager() = default;

sysDriveManager::~sysDriveManager() {
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
    auto drive = std::make_unique<sysDVRDrive>();
    if (drive->init()) {
        mDVRDrive = drive.release();
        return;
    }
    base::logMessage(1, "No DVR Drive Detected\n");
}
