// SPDX-License-Identifier: MIT
/// @file
/// The verbosity of the library, set by the application.
#ifndef KESTROVA_BASE_OUTPUTLEVEL_H
#define KESTROVA_BASE_OUTPUTLEVEL_H

#include <cstdint>

#include "base/export.h"

extern "C" {

/// Verbosity of the log, which is written to standard output. A message of level N is written when
/// this is at least N (unsigned comparison): 0 silences the log; 1 (the initial value) lets errors,
/// failed assertions and progress messages through; 2 adds attention checks, warnings and the dump
/// of the partition table. An application sets it before it starts the system, or at any time when
/// no other thread is inside the library.
///
/// What goes past the log is written at every level: on standard error what is told by perror and
/// that the boot variables do not fit, on standard output "Hmm" (HTTPReplyHeader) and "GetSize"
/// (get_blk_capacity()), and whatever the tools of the box write themselves.
KESTROVA_EXPORT extern std::uint32_t kestrova_debug_output_level;
}

#endif
