// SPDX-License-Identifier: MIT
//
// Parses arbitrary bytes as a boot environment image, and compares the result with a second
// implementation.
#include "System/bootvarsmanager/bootenvironment.h"

#include <cstdlib>
#include <optional>

#include "base/outputlevel.h"

namespace {

using Variables = std::map<std::string, std::string>;

std::uint32_t bigEndian(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + 4; ++i) {
        value = value << 8U | static_cast<unsigned char>(bytes[i]);
    }
    return value;
}

std::uint32_t crcOf(const std::string& bytes) {
    std::uint32_t crc = 0xffffffffU;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
        }
    }
    return ~crc;
}

std::optional<std::string> areaOf(const std::string& image) {
    if (image.size() < 12 || image[3] != 0 || image[2] == 0) {
        return std::nullopt;
    }
    const std::uint32_t size = bigEndian(image, 8);
    if (size > image.size() - 12) {
        return std::nullopt;
    }
    std::string area = image.substr(12, size);
    if (size != 0 && crcOf(area) != bigEndian(image, 4)) {
        return std::nullopt;
    }
    return area;
}

Variables recordsOf(const std::string& area) {
    Variables vars;
    for (std::size_t at = 0; at < area.size();) {
        const std::size_t keyEnd = area.find('\0', at);
        const std::size_t end = keyEnd == std::string::npos ? keyEnd : area.find('\0', keyEnd + 1);
        if (end == std::string::npos || end + 1 >= area.size() || area[end + 1] != '\0') {
            break;
        }
        vars[area.substr(at, keyEnd - at)] = area.substr(keyEnd + 1, end - keyEnd - 1);
        at = end + 2;
    }
    return vars;
}

void require(bool held) {
    if (!held) {
        std::abort();
    }
}

Variables parsed(const char* area, std::size_t size) {
    Variables vars;
    parseEnvironment(vars, area, static_cast<unsigned>(size));
    return vars;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length) {
    kestrova_debug_output_level = 0;
    const std::string image(reinterpret_cast<const char*>(data), length);
    const auto* const text = reinterpret_cast<const char*>(data);

    const std::optional<std::string> area = areaOf(image);
    BootEnvHeader header = {};
    require(validateEnvironment(header, data, static_cast<unsigned>(length)) == area.has_value());
    if (area) {
        require(header.size == area->size());
        require(parsed(text + kBootEnvHeaderSize, header.size) == recordsOf(*area));
    }
    // A valid checksum is rare, so parse the bytes as an area as well.
    require(parsed(text, length) == recordsOf(image));
    return 0;
}
