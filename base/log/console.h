// SPDX-License-Identifier: MIT
//
// Unbuffered standard output, for the log and for the console stream.
#ifndef KESTROVA_BASE_LOG_CONSOLE_H
#define KESTROVA_BASE_LOG_CONSOLE_H

#include <cstddef>

namespace base {

/// Writes all bytes to standard output. Retries on EINTR, waits while a non-blocking output is
/// full, and drops the remaining bytes on any other error. Preserves errno.
void writeConsole(const char* text, std::size_t length);

}  // namespace base

#endif
