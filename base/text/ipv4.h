// SPDX-License-Identifier: MIT
//
// IPv4 addresses as 32-bit numbers, the first octet in the highest byte.
#ifndef KESTROVA_BASE_TEXT_IPV4_H
#define KESTROVA_BASE_TEXT_IPV4_H

#include <cstdint>

/// Size of the longest dotted text in bytes, including its terminator.
constexpr unsigned kIpV4TextSize = sizeof("255.255.255.255");

/// Returns the address of a dotted text. 0 for "0.0.0.0", for a null pointer, and for any text that
/// is not four decimal octets; leading zeros and spaces are refused.
std::uint32_t buildIpV4(const char* text);

/// Writes the terminated dotted text of an address into `out`, which has at least kIpV4TextSize
/// bytes. Returns `out`.
char* ipV4toString(char* out, std::uint32_t address);

#endif
