// SPDX-License-Identifier: MIT
/// @file
/// The boot variables: named texts that survive a reboot and are shared with the boot stage.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_SYSBOOTVARSMANAGER_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_SYSBOOTVARSMANAGER_H

#include <string>

#include "base/export.h"
#include "base/vector.h"

/// The boot variables, reached through the system object, which owns it. An object without data.
///
/// Nothing is cached: every operation reads the boot environment file on the software partition,
/// which it mounts as needed and leaves as it found it. A failure to restore the mount is reported
/// with perror() only. Restoring the mount writes everything that is buffered for any file system
/// of the box (sync(2)). Each operation blocks for as long as that takes; a setting operation
/// returns when all is on the disk.
///
/// Threads: no lock. Any thread of any process may call, one at a time: of two writers that overlap
/// one update can be lost, and a reader that overlaps another caller can unmount the partition
/// under it. By convention every caller holds a sysResourceLock of eResBootVariables for that,
/// exclusive around setting and clearing, and around reading unless the software partition is
/// mounted all the time, when a shared one is enough. Restoring the mount and closing files are no
/// cancellation points. What is done and what goes wrong is logged at level 1, variables with their
/// values; a failed mount or unmount is reported with perror(). Only allocation failure is thrown,
/// and leaves the variables and the arguments as they were.
class KESTROVA_EXPORT sysBootVarsManager {
public:
    /// Appends every variable in the order of the names, name and value at the same index; nothing
    /// without a valid environment.
    /// @param names appended to, not cleared first
    /// @param values appended to, not cleared first
    /// @return true always
    bool getVarList(KestrovaVector<std::string>& names, KestrovaVector<std::string>& values);

    /// Copies a variable's text.
    /// @param name exact name; a null name fails
    /// @param[out] buf the text, cut to fit and terminated; untouched on failure
    /// @param size room in it, in bytes; 0 or less leaves it untouched
    /// @return false when there is no such variable or the environment cannot be read
    bool getVarS(const char* name, char* buf, int size);

    /// Decodes a binary variable (base64, RFC 4648).
    /// @param name exact name; a null name fails
    /// @param[out] length how many bytes were decoded; untouched on failure
    /// @param[out] buf the bytes; after a failure those that were decoded before it
    /// @param max room in it, in bytes; give at least 5
    /// @return false when there is none, when it is not base64, when the environment cannot be
    /// read, or when it is too large: its bytes must fit `max`, and its text must be shorter than
    /// twice `max` bytes, which a `max` of 1, 2 or 4 is too small for where the bytes alone would
    /// fit
    bool getVarB(const char* name, unsigned& length, unsigned char* buf, unsigned max);

    /// Sets a variable and saves all of them. After a failure or a power cut the variables are the
    /// old or the new ones, whole. All of them must fit a file of 65536 bytes: 12, and for each the
    /// bytes of its name, of its value and 3 more; otherwise the call fails with a message on
    /// standard error, however long name and value are. When no valid environment could be read,
    /// this variable is the only one afterwards.
    /// @param name exact name; a null name fails
    /// @param value its text; empty or null removes the variable
    /// @return true when it is on the disk
    bool setVarS(const char* name, const char* value);

    /// Sets a variable to bytes, stored as base64 text (RFC 4648); otherwise see setVarS().
    /// @param name exact name; a null name fails
    /// @param data the bytes
    /// @param length how many; 0 removes the variable. More than 1610612733 fail without a message,
    /// because their text has no length that an int can hold
    /// @return true when it is on the disk
    bool setVarB(const char* name, const unsigned char* data, unsigned length);

    /// Sets several variables and saves all of them in one rewrite of the file: all or none.
    /// Otherwise see setVarS(); also their room is counted at the end, so that a variable that is
    /// removed makes room for the others. Nothing is read or changed, and the reason is logged,
    /// when one of the settings is refused.
    /// @param names exact names; of two that are equal the later one counts. A variable that gets a
    /// value needs a name that is not empty and holds neither '=' nor a line end; a NUL in a name
    /// or value is refused as well
    /// @param values their texts, as many; an empty one removes its variable
    /// @return true when all are on the disk
    bool setVars(const KestrovaVector<std::string>& names,
                 const KestrovaVector<std::string>& values);

    /// Removes a variable; otherwise see setVarS().
    /// @param name exact name; a null name fails
    /// @return true when it is not on the disk, also when there was none
    bool clearVar(const char* name);
};

#endif
