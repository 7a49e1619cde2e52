// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_MOUNTOPTIONS_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_MOUNTOPTIONS_H

#include <cstddef>

namespace bootvars {

/// Length of the first of the options, which commas separate.
std::size_t firstOptionLength(const char* options);

/// Compares the first option with a two-letter name over its own length, at most three bytes.
bool firstOptionIs(const char* options, const char (&name)[3]);

}  // namespace bootvars

#endif
