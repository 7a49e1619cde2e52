// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_TEXT_H
#define KESTROVA_BASE_TEXT_H

#include <cstdarg>
#include <cstddef>

/// vsnprintf: formats into a buffer of `size` bytes, cuts what does not fit, terminates when size
/// is not 0. Returns the length that the whole text has, negative on a bad format.
int kestrova_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

/// Copies a text into a buffer of `size` bytes: cuts what does not fit, always terminates, does not
/// fill up the rest. A size of 0 or below leaves the buffer untouched. Returns the buffer.
char* kestrova_strncpy(char* buffer, const char* text, int size);

#endif
