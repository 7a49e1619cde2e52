// SPDX-License-Identifier: MIT
#include "System/system.h"

#include <utility>

#include "System/BlockdevCfg.fmp.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/drivemanager/drivemanager.h"
#include "System/sysSuperUserUtils.h"
#include "base/cancelguard.h"

int mem_fd = -1;

namespace {

sysInterface* systemInstance = nullptr;

}  // namespace

sysInterface::sysInterface(bool minimal) : mMinimal(minimal) {
    // The table of an earlier system that has not been freed, or null.
    BlockdeviceConfig* const earlierTable = BlockdeviceConfig::smpBlockdeviceConfig;
    bool tableBuilt = false;
    try {
        mpBootVarsManager = new sysBootVarsManager;
        mpSuperUserUtils = new sysSuperUserUtils(this);
        BlockdeviceConfig::CreateInstance();
        tableBuilt = true;
        if (!mMinimal) {
            initDVR();
        }
    } catch (...) {
        freeObjects();
        if (tableBuilt) {
            BlockdeviceConfig::DestroyInstance();
            BlockdeviceConfig::smpBlockdeviceConfig = earlierTable;
        }
        throw;
    }
}

sysInterface::~sysInterface() {
    // Waiting for the drive's worker is a cancellation point, and a destructor must not be unwound.
    const base::CancelGuard guard;
    freeObjects();
    BlockdeviceConfig::DestroyInstance();
}

void sysInterface::freeObjects() {
    if (!mMinimal) {
        termDVR();
    }
    delete mpSuperUserUtils;
    delete mpBootVarsManager;
}

void sysInterface::initDVR() {
    mpDriveManager = new sysDriveManager;
    mpDriveManager->start();
}

void sysInterface::termDVR() {
    if (mpDriveManager != nullptr) {
        mpDriveManager->stop();
        delete std::exchange(mpDriveManager, nullptr);
    }
}

void SystemInit() {
    systemInstance = new sysInterface(false);
}

void SystemMinimalInit() {
    systemInstance = new sysInterface(true);
}

void SystemTerm() {
    delete systemInstance;
    systemInstance = nullptr;
}

sysInterface* getSystem() {
    return systemInstance;
}

void* download_allocate(int size) {
    return new char[static_cast<std::size_t>(size)];
}

void download_free(void* memory) {
    delete[] static_cast<char*>(memory);
}
