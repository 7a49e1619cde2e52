// SPDX-License-Identifier: MIT
#include "base/text/crc32.h"

#include <array>
#include <cstddef>

namespace {

// Four words a step, each with a remainder of its own, so that none waits for the others. One table
// of 4 KiB serves all four, because each remainder moves on by the same four words.
constexpr std::size_t kWord = 4;
constexpr std::size_t kStep = 4 * kWord;
using Table = std::array<std::array<std::uint32_t, 256>, kWord>;

/// The remainder after so many more bits, all of them zero.
constexpr std::uint32_t advance(std::uint32_t remainder, unsigned bits) {
    constexpr std::uint32_t reflectedPolynomial = 0xedb88320U;
    for (; bits > 0; --bits) {
        remainder = (remainder >> 1U) ^ ((remainder & 1U) != 0 ? reflectedPolynomial : 0U);
    }
    return remainder;
}

/// Entry [k][b] is what byte b at place k of a remainder becomes one step later.
constexpr Table makeTable() {
    Table table{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t remainder = advance(byte, 8U * (kStep - kWord + 1));
        for (std::size_t place = kWord; place > 0; --place) {
            table[place - 1][byte] = remainder;
            remainder = advance(remainder, 8);
        }
    }
    return table;
}

constexpr Table kTable = makeTable();

std::uint32_t littleEndian(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8U |
           static_cast<std::uint32_t>(bytes[2]) << 16U |
           static_cast<std::uint32_t>(bytes[3]) << 24U;
}

std::uint32_t advanceStep(std::uint32_t remainder) {
    return kTable[0][remainder & 0xffU] ^ kTable[1][(remainder >> 8U) & 0xffU] ^
           kTable[2][(remainder >> 16U) & 0xffU] ^ kTable[3][remainder >> 24U];
}

}  // namespace

std::uint32_t kestrova_crc32(const unsigned char* data, int length) {
    // Not an array: a compiler that keeps it in memory makes this half as fast.
    std::uint32_t first = 0xffffffffU;
    std::uint32_t second = 0;
    std::uint32_t third = 0;
    std::uint32_t fourth = 0;
    auto rest = static_cast<std::size_t>(length > 0 ? length : 0);
    for (; rest >= 2 * kStep; rest -= kStep, data += kStep) {
        first = advanceStep(first ^ littleEndian(data));
        second = advanceStep(second ^ littleEndian(data + kWord));
        third = advanceStep(third ^ littleEndian(data + 2 * kWord));
        fourth = advanceStep(fourth ^ littleEndian(data + 3 * kWord));
    }
    // The last whole step joins the four, and what is left takes a byte at a time.
    std::uint32_t crc = first;
    if (rest >= kStep) {
        constexpr unsigned bits = 8 * kWord;
        crc = advance(crc ^ littleEndian(data), bits);
        crc = advance(crc ^ second ^ littleEndian(data + kWord), bits);
        crc = advance(crc ^ third ^ littleEndian(data + 2 * kWord), bits);
        crc = advance(crc ^ fourth ^ littleEndian(data + 3 * kWord), bits);
        rest -= kStep;
        data += kStep;
    }
    for (; rest > 0; --rest, ++data) {
        crc = advance(crc ^ *data, 8);
    }
    return ~crc;
}
