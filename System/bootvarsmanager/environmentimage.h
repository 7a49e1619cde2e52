// SPDX-License-Identifier: MIT
//
// The format of the boot environment file, which the boot stage of the box reads and writes too.
// docs/boot-environment.md describes it byte by byte.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_ENVIRONMENTIMAGE_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_ENVIRONMENTIMAGE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

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

/// Why a file is not a valid environment.
enum class EnvironmentDefect {
    eNone,
    eUnreadable,   ///< it cannot be opened or read
    eTooShort,     ///< shorter than its header
    eBadFlags,     ///< the flags are not those of an environment
    eBadSize,      ///< the variable area ends beyond the end of the file
    eTooLarge,     ///< valid, but larger than the caller accepts
    eBadChecksum,  ///< the variable area does not have the stored CRC-32
};

/// Checks a whole file image and gives its header. Returns the first defect of eTooShort,
/// eBadFlags, eBadSize and eBadChecksum. Bad flags and a bad CRC are logged at level 1.
EnvironmentDefect findDefect(BootEnvHeader& header, const unsigned char* data, unsigned length);

/// Returns true when findDefect() finds none.
bool validateEnvironment(BootEnvHeader& header, const unsigned char* data, unsigned length);

/// Adds the records of a variable area to the map; a later one replaces an earlier. Stops silently
/// at the first record that is malformed or does not end within the area.
void parseEnvironment(std::map<std::string, std::string>& vars, const char* area, unsigned size);

/// Writes the header of an image, whose first kBootEnvHeaderSize bytes are reserved for it. A
/// shorter image is first extended to these bytes.
void completeImage(std::vector<char>& image);

#endif
