// SPDX-License-Identifier: MIT
#include "base/crc32.h"

#include <array>
#include <cstddef>

namespace {

// Eight bytes a step: entry [k][b] is what byte b contributes when k more bytes follow it in the
// step. 8 KiB of tables, made at compile time.
constexpr std::size_t kStep = 8;
using Tables = std::array<std::array<std::uint32_t, 256>, kStep>;

constexpr Tables makeTables() {
    constexpr std::uint32_t reflectedPolynomial = 0xedb88320U;
    Tables tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value >> 1U) ^ ((value & 1U) != 0 ? reflectedPolynomial : 0U);
        }
        tables[0][byte] = value;
    }
    for (std::size_t k = 1; k < kStep; ++k) {
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const std::uint32_t before = tables[k - 1][byte];
            tables[k][byte] = (before >> 8U) ^ tables[0][before & 0xffU];
        }
    }
    return tables;
}

constexpr Tables kTables = makeTables();

std::uint32_t littleEndian(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8U |
           static_cast<std::uint32_t>(bytes[2]) << 16U |
           static_cast<std::uint32_t>(bytes[3]) << 24U;
}

}  // namespace

std::uint32_t kestrova_crc32(const unsigned char* data, int length) {
    std::uint32_t crc = 0xffffffffU;
    auto rest = static_cast<std::size_t>(length > 0 ? length : 0);
    for (; rest >= kStep; rest -= kStep, data += kStep) {
        const std::uint32_t low = crc ^ littleEndian(data);
        const std::uint32_t high = littleEndian(data + 4);
        crc = kTables[7][low & 0xffU] ^ kTables[6][(low >> 8U) & 0xffU] ^
              kTables[5][(low >> 16U) & 0xffU] ^ kTables[4][low >> 24U] ^ kTables[3][high & 0xffU] ^
              kTables[2][(high >> 8U) & 0xffU] ^ kTables[1][(high >> 16U) & 0xffU] ^
              kTables[0][high >> 24U];
    }
    for (; rest > 0; --rest, ++data) {
        crc = (crc >> 8U) ^ kTables[0][(crc ^ *data) & 0xffU];
    }
    return ~crc;
}
