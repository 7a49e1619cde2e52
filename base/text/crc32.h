// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_TEXT_CRC32_H
#define KESTROVA_BASE_TEXT_CRC32_H

#include <cstdint>

/// Returns the CRC-32 of `length` bytes as in ISO 3309 and ITU-T V.42: polynomial 0x04c11db7
/// reflected, initial value and final complement of all ones; the check value of "123456789" is
/// 0xcbf43926. Returns 0 for a length of 0 or below.
std::uint32_t kestrova_crc32(const unsigned char* data, int length);

#endif
