// SPDX-License-Identifier: MIT
#include "base/text.h"

#include <cstdio>
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
