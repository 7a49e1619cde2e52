// SPDX-License-Identifier: MIT
/// @file
/// Starts and stops the system, and declares the system object.
#ifndef KESTROVA_SYSTEM_SYSTEM_H
#define KESTROVA_SYSTEM_SYSTEM_H

#include "base/export.h"

class sysBootVarsManager;
class sysDriveManager;
class sysSuperUserUtils;

/// The system object. It owns the objects that its members point to; they are valid until
/// SystemTerm(), the drive manager until termDVR(). Code that uses one of them includes its header:
/// System/bootvarsmanager/sysBootVarsManager.h, System/sysSuperUserUtils.h,
/// System/drivemanager/drivemanager.h. An application gets the object from getSystem() and creates
/// none of its own.
class KESTROVA_EXPORT sysInterface {
public:
    /// Creates the boot variables, the maintenance utilities and the partition table of the box
    /// and, unless minimal, the drive manager, which detects the recording drive. The only
    /// exception is std::bad_alloc, after everything has been freed.
    /// @param minimal true does not touch the drive
    explicit sysInterface(bool minimal);
    /// Destroys everything it created. Mounted file systems stay mounted. Blocks as long as
    /// termDVR().
    ~sysInterface();
    sysInterface(const sysInterface&) = delete;
    sysInterface& operator=(const sysInterface&) = delete;

    /// Creates and starts the drive manager; call it only if there is none. Blocks while the drive
    /// is detected. In a minimal system call termDVR() as well: nothing else frees the manager.
    void initDVR();
    /// Stops and frees the drive manager, if there is one. Blocks until the drive's worker, if any,
    /// has exited.
    void termDVR();

    bool mMinimal;  ///< without drive handling; fixed for the object's lifetime
    sysBootVarsManager* mpBootVarsManager = nullptr;  ///< boot variables, never null
    sysSuperUserUtils* mpSuperUserUtils = nullptr;    ///< maintenance, never null
    sysDriveManager* mpDriveManager = nullptr;  ///< null without drive handling, or after termDVR()

private:
    KESTROVA_LOCAL void freeObjects();
};

extern "C" {

/// Starts the whole system. Call it once, from one thread, before any other use. A second call
/// without SystemTerm() succeeds: a failed assertion is logged, and a new system object replaces
/// the earlier one, which is not freed. Blocks while the recording drive is detected, which
/// unmounts its file systems; a missing drive is not a failure. The only exception is
/// std::bad_alloc.
KESTROVA_EXPORT void SystemInit();

/// Starts the system like SystemInit(), but without drive handling: the drive is not touched.
KESTROVA_EXPORT void SystemMinimalInit();

/// Stops the system; does nothing if it is not started. No other thread may use it meanwhile.
/// Blocks until the drive's worker, if any, has exited. Mounted file systems stay mounted, so the
/// application that started the drive stops it first.
KESTROVA_EXPORT void SystemTerm();

/// Returns the object that owns everything in the library. Does not block. Any thread may call it
/// while the system is started.
/// @return the system object; null before the start and after the stop; owned by the library
KESTROVA_EXPORT sysInterface* getSystem();

/// Allocates memory for a download. Throws std::bad_alloc on failure, or std::bad_array_new_length
/// for a negative size. Any thread.
/// @param size bytes
/// @return uninitialised memory, owned by the caller, who frees it with download_free()
KESTROVA_EXPORT void* download_allocate(int size);

/// Frees memory of download_allocate(). Any thread.
/// @param memory a null pointer is ignored
KESTROVA_EXPORT void download_free(void* memory);

/// Exported for clients; initially -1. The library neither reads nor writes it.
KESTROVA_EXPORT extern int mem_fd;
}

#endif
