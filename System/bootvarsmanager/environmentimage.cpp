// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/environmentimage.h"

#include <endian.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "System/bootvarsmanager/bootvariables.h"
#include "base/log/log.h"
#include "base/text/crc32.h"

namespace {

constexpr char kSource[] = "System/bootvarsmanager/sysBootVarsManager";

constexpr std::uint32_t kFlags = 0x00ffffff;
constexpr std::uint32_t kClearFlags = 0xff000000;  // all of these must be zero
constexpr std::uint32_t kSetFlags = 0x00ff0000;    // not all of these may be zero

}  // namespace

EnvironmentDefect findDefect(BootEnvHeader& header, const unsigned char* data, unsigned length) {
    if (length < kBootEnvHeaderSize) {
        return EnvironmentDefect::eTooShort;
    }
    std::uint32_t words[3];
    std::memcpy(words, data, sizeof(words));
    header = {le32toh(words[0]), words[1], words[2]};
    if ((header.flags & kClearFlags) != 0 || (header.flags & kSetFlags) == 0) {
        base::logMessageAt(kSource, __LINE__, 1, "badflags %x vm:%x-%x dm:%x-%x\n", header.flags,
                           kClearFlags, 0U, kSetFlags, 0U);
        return EnvironmentDefect::eBadFlags;
    }
    header.crc = be32toh(header.crc);
    header.size = be32toh(header.size);
    if (header.size > length - kBootEnvHeaderSize) {
        return EnvironmentDefect::eBadSize;
    }
    if (header.size == 0) {
        return EnvironmentDefect::eNone;
    }
    const std::uint32_t crc =
        kestrova_crc32(data + kBootEnvHeaderSize, static_cast<int>(header.size));
    if (crc != header.crc) {
        base::logMessageAt(kSource, __LINE__, 1, "bad crc  %x %x\n", crc, header.crc);
        return EnvironmentDefect::eBadChecksum;
    }
    return EnvironmentDefect::eNone;
}

bool validateEnvironment(BootEnvHeader& header, const unsigned char* data, unsigned length) {
    return findDefect(header, data, length) == EnvironmentDefect::eNone;
}

void parseEnvironment(std::map<std::string, std::string>& vars, const char* area, unsigned size) {
    std::string_view rest(area, size);
    for (BootRecord record; takeRecord(rest, record);) {
        vars.insert_or_assign(std::string(record.mKey), std::string(record.mValue));
    }
}

void completeImage(std::vector<char>& image) {
    image.resize(std::max<std::size_t>(image.size(), kBootEnvHeaderSize));
    const auto size = static_cast<std::uint32_t>(image.size()) - kBootEnvHeaderSize;
    const auto* const area =
        reinterpret_cast<const unsigned char*>(image.data()) + kBootEnvHeaderSize;
    const std::uint32_t crc = kestrova_crc32(area, static_cast<int>(size));
    const std::uint32_t header[] = {htole32(kFlags), htobe32(crc), htobe32(size)};
    static_assert(sizeof(header) == kBootEnvHeaderSize);
    std::memcpy(image.data(), header, sizeof(header));
}
