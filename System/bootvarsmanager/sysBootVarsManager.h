// SPDX-License-Identifier: MIT
//
// The boot variables: named texts that survive a reboot and are shared with the boot stage.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_SYSBOOTVARSMANAGER_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_SYSBOOTVARSMANAGER_H

#include <string>

#include "base/export.h"
#include "base/vector.h"

/// The boot variables, reached through the system object, which owns it. An object without data.
///
/// Nothing is cached: every operation reads the boot environment file on the software partition,
/// which it mounts as needed and leaves as it found it. Each blocks for as long as that takes; a
/// setting operation waits until all is on the disk.
///
/// Threads: no lock. Any thread may call, one at a time: of two writers that overlap one update can
/// be lost. What goes wrong is logged at level 1; only allocation failure is thrown.
class KESTROVA_EXPORT sysBootVarsManager {
public:
    /// Appends every variable in the order of the names, name and value at the same index. Always
    /// true; without a valid environment nothing is appended. The vectors are not cleared first.
    bool getVarList(KestrovaVector<std::string>& names, KestrovaVector<std::string>& values);

    /// Copies a variable's text into a buffer of `size` bytes; cut to fit, always terminated.
    /// False, with the buffer untouched, when there is none or the environment cannot be read.
    bool getVarS(const char* name, char* buf, int size);

    /// Decodes a binary variable into a buffer and gives its length in bytes. False when there is
    /// none, when it is not base64, or when it is too large: its text must be shorter than twice
    /// `max` bytes and its bytes must fit `max`. The length is then untouched.
    bool getVarB(const char* name, unsigned& length, unsigned char* buf, unsigned max);

    /// Sets a variable and saves all of them. An empty or null value removes it. True when it is on
    /// the disk; after a failure or a power cut the variables are the old or the new ones, whole.
    bool setVarS(const char* name, const char* value);

    /// Sets a variable to bytes, stored as base64 text; as setVarS().
    bool setVarB(const char* name, const unsigned char* data, unsigned length);

    /// Removes a variable; as setVarS().
    bool clearVar(const char* name);
};

#endif
