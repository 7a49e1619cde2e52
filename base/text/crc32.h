// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_TEXT_CRC32_H
#define KESTROVA_BASE_TEXT_CRC32_H

#include <cstdint>

/// CRC-32 of `length` bytes as of ISO 3309 and ITU-T V.42: polynomial 0x04c11db7 reflected, start
/// value and final complement of all ones; the check value of "123456789" is 0xcbf43926. A length
/// of 0 or below gives 0.
std::uint32_t kestrova_crc32(const unsigned char* data, int length);

#endif
