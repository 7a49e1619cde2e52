// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_TEXT_H
#define KESTROVA_BASE_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

/// vsnprintf: formats into a buffer of `size` bytes, cuts what does not fit, terminates when size
/// is not 0. Returns the length that the whole text has, negative on a bad format.
int kestrova_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

/// Copies a text into a buffer of `size` bytes: cuts what does not fit, always terminates, does not
/// fill up the rest. A size of 0 or below leaves the buffer untouched. Returns the buffer.
char* kestrova_strncpy(char* buffer, const char* text, int size);

namespace base {

/// strtol for base 10 as on a machine whose long has 32 bits, on every machine: a number beyond
/// that range becomes the nearest end of the range. `end` is where the conversion stopped: `text`
/// itself, blanks included, when there is no number.
std::int32_t parseNumber(const char* text, const char*& end);
std::int32_t parseNumber(const char* text);

}  // namespace base

#endif
