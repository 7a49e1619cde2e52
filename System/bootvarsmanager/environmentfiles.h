// SPDX-License-Identifier: MIT
//
// The three files of an environment in one directory: how they are read and replaced. No locks: of
// two writers at the same time one change can be lost.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_ENVIRONMENTFILES_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_ENVIRONMENTFILES_H

#include <cstddef>
#include <string>
#include <vector>

#include "System/bootvarsmanager/bootvariables.h"
#include "System/bootvarsmanager/environmentimage.h"

/// Paths of the files.
struct EnvironmentFiles {
    std::string mDirectory;  ///< holds the files
    std::string mPrimary;    ///< the variables; read first
    std::string mBackup;     ///< the variables before the last change
    std::string mTemporary;  ///< a new file while it is written
};

/// What reading a file has found.
struct EnvironmentFinding {
    EnvironmentDefect mDefect = EnvironmentDefect::eNone;
    int mError = 0;  ///< errno, for eUnreadable
};

/// What reading the files has found. The backup is read only when the primary has a defect.
struct EnvironmentReading {
    EnvironmentFinding mPrimary;
    EnvironmentFinding mBackup;

    bool fromPrimary() const { return mPrimary.mDefect == EnvironmentDefect::eNone; }
    bool loaded() const { return fromPrimary() || mBackup.mDefect == EnvironmentDefect::eNone; }
};

/// Reads the variables from the primary file, or else from the backup. A file of more than `most`
/// bytes has a defect; at most kBootEnvFileSize bytes of a file are read. When neither is valid,
/// `vars` is unchanged. Logs at level 1.
EnvironmentReading loadEnvironmentFiles(const EnvironmentFiles& files, std::size_t most,
                                        BootVariables& vars);

/// The step of an installation that failed.
enum class InstallStep {
    eNone,
    eWriting,          ///< the temporary file cannot be written
    eBackingUp,        ///< the primary cannot become the backup
    eMakingCurrent,    ///< the temporary file cannot become the primary
    eMakingPermanent,  ///< the directory cannot be synced
};

/// Writes a complete image as the temporary file and makes it the primary. The earlier primary
/// becomes the backup when `loadedFromPrimary` says that it was good. Returns eNone when all of it
/// is on the disk; otherwise errno tells why the step failed. At every moment before that, also
/// after a power cut, the primary or else the backup is whole. A failure of eWriting or eBackingUp
/// leaves both unchanged. Logs at level 1.
InstallStep installEnvironment(const EnvironmentFiles& files, const std::vector<char>& image,
                               bool loadedFromPrimary);

/// Makes the names in a directory last. Returns false on failure; errno tells why.
bool syncDirectory(const std::string& directory);

#endif
