// SPDX-License-Identifier: MIT
//
// Unbuffered standard output, for the log and for the console stream.
#ifndef KESTROVA_BASE_LOG_CONSOLE_H
#define KESTROVA_BASE_LOG_CONSOLE_H

#include <cstddef>

namespace base {

/// Writes all bytes to standard output. Goes on after an interruption and waits while a
/// non-blocking output is full; gives the rest up on any other error. Keeps errno.
void writeConsole(const char* text, std::size_t length);

}  // namespace base

#endif
