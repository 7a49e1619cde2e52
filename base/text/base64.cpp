// SPDX-License-Identifier: MIT
#include "base/text/base64.h"

#include <climits>
#include <cstdint>
#include <cstring>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Value of a character, or negative if it is not in the alphabet.
int sextet(unsigned char character) {
    if (character == '\0') {
        return -1;
    }
    const char* const found = std::strchr(kAlphabet, character);
    return found != nullptr ? static_cast<int>(found - kAlphabet) : -1;
}

}  // namespace

int base64encodeBufferSize(int length) {
    if (length < 0) {
        return -1;
    }
    const int groups = length / 3 + (length % 3 != 0 ? 1 : 0);
    return groups <= INT_MAX / 4 ? groups * 4 : -1;
}

int base64encode(const unsigned char* in, int inLength, unsigned char* out, int outSize) {
    const int size = base64encodeBufferSize(inLength);
    if (size < 0 || outSize < size) {
        return -1;
    }
    for (int rest = inLength; rest > 0; rest -= 3, in += 3) {
        std::uint32_t group = static_cast<std::uint32_t>(in[0]) << 16U;
        if (rest > 1) {
            group |= static_cast<std::uint32_t>(in[1]) << 8U;
        }
        if (rest > 2) {
            group |= in[2];
        }
        *out++ = static_cast<unsigned char>(kAlphabet[group >> 18U]);
        *out++ = static_cast<unsigned char>(kAlphabet[(group >> 12U) & 63U]);
        *out++ = rest > 1 ? static_cast<unsigned char>(kAlphabet[(group >> 6U) & 63U]) : '=';
        *out++ = rest > 2 ? static_cast<unsigned char>(kAlphabet[group & 63U]) : '=';
    }
    return size;
}

int base64decodeBufferSize(const unsigned char* in, int length) {
    if (length < 0 || length % 4 != 0) {
        return -1;
    }
    int size = length / 4 * 3;
    if (length > 0 && in[length - 1] == '=') {
        size -= in[length - 2] == '=' ? 2 : 1;
    }
    return size;
}

int base64decode(const unsigned char* in, int inLength, unsigned char* out, int outSize) {
    const int size = base64decodeBufferSize(in, inLength);
    if (size < 0 || outSize < size) {
        return -1;
    }
    for (int rest = size; rest > 0; rest -= 3, in += 4) {
        const int padding = rest >= 3 ? 0 : 3 - rest;
        std::uint32_t group = 0;
        for (int i = 0; i < 4; ++i) {
            const int value = i < 4 - padding ? sextet(in[i]) : 0;
            if (value < 0) {
                return -1;
            }
            group = group << 6U | static_cast<std::uint32_t>(value);
        }
        const std::uint32_t unused = padding == 0 ? 0 : (padding == 1 ? 0xffU : 0xffffU);
        if ((group & unused) != 0) {
            return -1;
        }
        *out++ = static_cast<unsigned char>(group >> 16U);
        if (rest > 1) {
            *out++ = static_cast<unsigned char>((group >> 8U) & 0xffU);
        }
        if (rest > 2) {
            *out++ = static_cast<unsigned char>(group & 0xffU);
        }
    }
    return size;
}
