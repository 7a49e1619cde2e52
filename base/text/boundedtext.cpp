// SPDX-License-Identifier: MIT
#include "base/text/boundedtext.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int kestrova_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments) {
    return std::vsnprintf(buffer, size, format, arguments);
}

char* kestrova_strncpy(char* buffer, const char* text, int size) {
    if (size > 0) {
        const std::size_t length = strnlen(text, static_cast<std::size_t>(size) - 1);
        std::memcpy(buffer, text, length);
        buffer[length] = '\0';
    }
    return buffer;
}

namespace base {

std::int32_t parseNumber(const char* text, const char*& end) {
    char* stop = nullptr;
    const long number = std::strtol(text, &stop, 10);
    end = stop;
    return static_cast<std::int32_t>(std::clamp<long>(number, INT32_MIN, INT32_MAX));
}

std::int32_t parseNumber(const char* text) {
    const char* end = nullptr;
    return parseNumber(text, end);
}

}  // namespace base
