// SPDX-License-Identifier: MIT
/// @file
/// The way in: bringing the system up and down, and the system object.
#ifndef KESTROVA_SYSTEM_SYSTEM_H
#define KESTROVA_SYSTEM_SYSTEM_H

#include "base/export.h"

class sysBootVarsManager;
class sysDriveManager;
class sysSuperUserUtils;

/// The system object. It owns what its members point to; they are valid until SystemTerm(), the
/// drive manager until termDVR(). Code that uses one of them includes its header:
/// System/bootvarsmanager/sysBootVarsManager.h, System/sysSuperUserUtils.h,
/// System/drivemanager/drivemanager.h. An application asks getSystem() for the object and makes
/// none of its own.
class KESTROVA_EXPORT sysInterface {
public:
    /// Makes the boot variables, the maintenance utilities and the partition table of the box and,
    /// unless minimal, the drive manager, which detects the recording drive. Only allocation
    /// failure is thrown; nothing stays behind then.
    /// @param minimal true leaves the drive alone
    explicit sysInterface(bool minimal);
    /// Takes everything down again. Mounted file systems stay mounted. Blocks as termDVR().
    ~sysInterface();
    sysInterface(const sysInterface&) = delete;
    sysInterface& operator=(const sysInterface&) = delete;

    /// Makes and starts the drive manager; call it only when there is none. Blocks for the
    /// detection of the drive. In a minimal system termDVR() has to follow: nothing else frees it.
    void initDVR();
    /// Stops and frees the drive manager, if there is one. Blocks until the drive's worker, if any,
    /// has ended.
    void termDVR();

    bool mMinimal;  ///< without drive handling; fixed for the object's life
    sysBootVarsManager* mpBootVarsManager = nullptr;  ///< boot variables, never null
    sysSuperUserUtils* mpSuperUserUtils = nullptr;    ///< maintenance, never null
    sysDriveManager* mpDriveManager = nullptr;        ///< null without drive handling

private:
    KESTROVA_LOCAL void freeObjects();
};

extern "C" {

/// Brings the whole system up. Call once, from one thread, before any other use. A second call
/// without SystemTerm() is not refused: a failed assertion is reported, and a new system object
/// replaces the earlier one, which stays alive. Blocks for the detection of the recording drive,
/// which unmounts its file systems; a missing drive is no failure. Only allocation failure is
/// thrown.
KESTROVA_EXPORT void SystemInit();

/// As SystemInit(), without any drive handling: the drive is left alone.
KESTROVA_EXPORT void SystemMinimalInit();

/// Takes the system down; does nothing when it is not up. Not while another thread uses it. Blocks
/// until the drive's worker, if any, has ended. Mounted file systems stay mounted, so the
/// application that started the drive stops it first.
KESTROVA_EXPORT void SystemTerm();

/// The way to everything that the library owns. Does not block. Any thread may call it while the
/// system is up.
/// @return the system object; null before the start and after the end; owned by the library
KESTROVA_EXPORT sysInterface* getSystem();

/// Memory for a download. Throws std::bad_alloc (or std::bad_array_new_length for a negative size)
/// when there is none. Any thread.
/// @param size bytes
/// @return the memory, not cleared; the caller's, to be freed with download_free()
KESTROVA_EXPORT void* download_allocate(int size);

/// Frees memory of download_allocate(). Any thread.
/// @param memory a null pointer is ignored
KESTROVA_EXPORT void download_free(void* memory);

/// Kept for clients; -1 at first. The library neither reads nor writes it.
KESTROVA_EXPORT extern int mem_fd;
}

#endif
