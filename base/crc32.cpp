// SPDX-License-Identifier: MIT
#include "base/crc32.h"

#include <array>
#include <cstddef>

namespace {

// Sixteen bytes a step: entry [k][b] is what byte b contributes when k more bytes follow it in the
// step. 16 KiB of tables, made at compile time.
constexpr std::size_t kWord = 4;
constexpr std::size_t kStep = 4 * kWord;
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

/// What the four bytes of a word contribute when `after` more words follow it in the step.
std::uint32_t contribution(std::uint32_t word, std::size_t after) {
    const std::size_t k = after * kWord;
    return kTables[k + 3][word & 0xffU] ^ kTables[k + 2][(word >> 8U) & 0xffU] ^
           kTables[k + 1][(word >> 16U) & 0xffU] ^ kTables[k][word >> 24U];
}

}  // namespace

std::uint32_t kestrova_crc32(const unsigned char* data, int length) {
    std::uint32_t crc = 0xffffffffU;
    auto rest = static_cast<std::size_t>(length > 0 ? length : 0);
    for (; rest >= kStep; rest -= kStep, data += kStep) {
        // The later words do not wait for the step before, so they are put together first.
        const std::uint32_t later = contribution(littleEndian(data + kWord), 2) ^
                                    contribution(littleEndian(data + 2 * kWord), 1) ^
                                    contribution(littleEndian(data + 3 * kWord), 0);
        crc = contribution(crc ^ littleEndian(data), 3) ^ later;
    }
    for (; rest > 0; --rest, ++data) {
        crc = (crc >> 8U) ^ kTables[0][(crc ^ *data) & 0xffU];
    }
    return ~crc;
}
