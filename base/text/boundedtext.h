// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_TEXT_BOUNDEDTEXT_H
#define KESTROVA_BASE_TEXT_BOUNDEDTEXT_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

/// vsnprintf(): formats into a buffer of `size` bytes, truncates text that does not fit, and
/// terminates it if `size` is not 0. Returns the length of the whole text, or a negative value if a
/// conversion fails.
int kestrova_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

/// Copies a text into a buffer of `size` bytes, truncates text that does not fit, and always
/// terminates it; unlike strncpy(), does not fill the rest. Leaves the buffer unchanged if `size`
/// is 0 or negative. Returns the buffer.
char* kestrova_strncpy(char* buffer, const char* text, int size);

namespace base {

/// strtol() for base 10 on a machine with a 32-bit long, on every machine: a number outside that
/// range becomes the nearest limit. `end` receives the position where the conversion stopped, which
/// is `text`, before any blanks, if there is no number.
std::int32_t parseNumber(const char* text, const char*& end);
std::int32_t parseNumber(const char* text);

}  // namespace base

#endif
