// SPDX-License-Identifier: MIT
//
// The boot environment on the software partition, which is mounted for each access.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_BOOTENVIRONMENT_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_BOOTENVIRONMENT_H

#include <map>
#include <string>

#include "System/bootvarsmanager/bootvariables.h"
#include "System/bootvarsmanager/environmentimage.h"

/// Reads the variables from the primary file, or else from the backup, and says which it was. The
/// software partition is mounted for that and restored. At most kBootEnvFileSize bytes of a file
/// are read. Returns false when neither is valid: both arguments are then as they were.
bool loadEnvironment(BootVariables& vars, bool& loadedFromPrimary);

/// Installs the variables as the new primary file, and completes their image for that. The earlier
/// primary becomes the backup when `loadedFromPrimary` says that it was good. Returns true when all
/// of it is on the disk. At every moment before that, also after a power cut, the primary or else
/// the backup is whole.
bool saveEnvironment(BootVariables& vars, bool& loadedFromPrimary);

/// The same for a map: loadEnvironment() adds to it, and saveEnvironment() leaves empty values out.
bool loadEnvironment(std::map<std::string, std::string>& vars, bool& loadedFromPrimary);
bool saveEnvironment(const std::map<std::string, std::string>& vars, bool& loadedFromPrimary);

#endif
