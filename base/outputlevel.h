// SPDX-License-Identifier: MIT
/// @file
/// The verbosity of the library, set by the application.
#ifndef KESTROVA_BASE_OUTPUTLEVEL_H
#define KESTROVA_BASE_OUTPUTLEVEL_H

#include <cstdint>

#include "base/export.h"

extern "C" {

/// Verbosity of the log, which is written to standard output. A message of level N is written when
/// this value is at least N (unsigned comparison). 0 silences the log. 1, the initial value, writes
/// errors, failed assertions and progress messages. 2 adds attention checks, warnings and the dump
/// of the partition table. Set it before the system starts, or while no other thread is inside the
/// library.
///
/// Writing a message blocks while another thread writes one and while standard output accepts no
/// data. It raises SIGPIPE if standard output is a pipe without a reader, so an application that
/// can lose its reader ignores that signal.
///
/// Some output bypasses the log and is written at every level: perror() messages and the report
/// that the boot variables do not fit (standard error), "Hmm" of HTTPReplyHeader and "GetSize" of
/// get_blk_capacity() (standard output), and the output of the box's tools.
KESTROVA_EXPORT extern std::uint32_t kestrova_debug_output_level;
}

#endif
