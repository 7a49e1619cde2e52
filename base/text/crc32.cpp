// SPDX-License-Identifier: MIT
#include "base/text/crc32.h"

#include <array>
#include <cstddef>

namespace {

// Processes four words per step with a separate remainder each, so that the four do not depend on
// each other. One table of 4 KiB serves all of them, because each remainder advances by the same
// four words.
constexpr std::size_t kWord = 4;
constexpr std::size_t kStep = 4 * kWord;
using Table = std::array<std::array<std::uint32_t, 256>, kWord>;

/// Returns the remainder after `bits` more zero bits.
constexpr std::uint32_t advance(std::uint32_t remainder, unsigned bits) {
    constexpr std::uint32_t reflectedPolynomial = 0xedb88320U;
    for (; bits > 0; --bits) {
        remainder = (remainder >> 1U) ^ ((remainder & 1U) != 0 ? reflectedPolynomial : 0U);
    }
    return remainder;
}

/// Entry [k][b] is the result of advancing byte b at position k of a remainder by one step.
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
    // Separate variables, because a compiler that keeps an array in memory halves the speed.
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
    // The last whole step combines the four remainders; the rest is processed byte by byte.
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
