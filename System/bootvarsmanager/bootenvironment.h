// SPDX-License-Identifier: MIT
//
// The boot environment file, which the boot stage of the box reads and writes too: its format, and
// how it is read and replaced. docs/boot-environment.md describes it byte by byte.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_BOOTENVIRONMENT_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_BOOTENVIRONMENT_H

#include <cstdint>
#include <map>
#include <string>

#include "System/bootvarsmanager/bootvariables.h"

/// Header of the file. Flags are stored little-endian, crc and size big-endian.
struct BootEnvHeader {
    std::uint32_t flags;  ///< bits 24 to 31 zero, bits 16 to 23 not all zero
    std::uint32_t crc;    ///< CRC-32 of the variable area; in host order once validated
    std::uint32_t size;   ///< bytes of the variable area; in host order once validated
};

/// Bytes of the largest file, of its header and of the largest variable area.
constexpr std::uint32_t kBootEnvFileSize = 65536;
constexpr std::uint32_t kBootEnvHeaderSize = 12;
constexpr std::uint32_t kBootEnvAreaSize = kBootEnvFileSize - kBootEnvHeaderSize;

/// Checks a whole file image and gives its header. Bad flags and a bad CRC are logged at level 1;
/// an image that is too short for its header or its size is not.
bool validateEnvironment(BootEnvHeader& header, const unsigned char* data, unsigned length);

/// Adds the records of a variable area to the map; a later one replaces an earlier. Stops silently
/// at the first record that is malformed or does not end within the area.
void parseEnvironment(std::map<std::string, std::string>& vars, const char* area, unsigned size);

/// Reads the variables from the primary file, or else from the backup, and says which it was. The
/// software partition is mounted for that and restored. At most kBootEnvFileSize bytes of a file
/// are read. Returns false when neither is valid: both arguments are then as they were.
bool loadEnvironment(BootVariables& vars, bool& loadedFromPrimary);

/// Installs the variables as the new primary file, and completes their image for that. The earlier
/// primary
/// becomes the backup when `loadedFromPrimary` says that it was good. Returns true when all of it
/// is on the disk. At every moment before that, also after a power cut, the primary or else the
/// backup is whole.
bool saveEnvironment(BootVariables& vars, bool& loadedFromPrimary);

/// The same for a map: loadEnvironment() adds to it, and saveEnvironment() leaves empty values out.
bool loadEnvironment(std::map<std::string, std::string>& vars, bool& loadedFromPrimary);
bool saveEnvironment(const std::map<std::string, std::string>& vars, bool& loadedFromPrimary);

#endif
