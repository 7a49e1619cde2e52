// SPDX-License-Identifier: MIT
//
// IPv4 addresses as 32-bit numbers, the first octet in the highest byte.
#ifndef KESTROVA_BASE_IPV4_H
#define KESTROVA_BASE_IPV4_H

#include <cstdint>

/// Bytes that the longest dotted text takes, its terminator included.
constexpr unsigned kIpV4TextSize = sizeof("255.255.255.255");

/// Address of a dotted text; 0 for anything but four decimal octets (leading zeros, spaces, a null
/// pointer and every other form are refused), and for "0.0.0.0".
std::uint32_t buildIpV4(const char* text);

/// Writes the dotted text of an address into a buffer of at least kIpV4TextSize bytes; terminates
/// it and returns it.
char* ipV4toString(char* out, std::uint32_t address);

#endif
