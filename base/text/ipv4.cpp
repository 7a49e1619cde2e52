// SPDX-License-Identifier: MIT
#include "base/text/ipv4.h"

#include <arpa/inet.h>

#include <cstdio>

std::uint32_t buildIpV4(const char* text) {
    in_addr address = {};
    if (text == nullptr || inet_pton(AF_INET, text, &address) != 1) {
        return 0;
    }
    return ntohl(address.s_addr);
}

char* ipV4toString(char* out, std::uint32_t address) {
    (void)std::snprintf(out, kIpV4TextSize, "%u.%u.%u.%u", address >> 24U, (address >> 16U) & 0xffU,
                        (address >> 8U) & 0xffU, address & 0xffU);
    return out;
}
