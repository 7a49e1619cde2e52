// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_IO_FILELOCK_H
#define KESTROVA_BASE_IO_FILELOCK_H

#include "base/io/descriptor.h"

namespace base {

/// Takes the flock(2) of an open file or directory without waiting. The kernel releases it when the
/// last copy of the descriptor is closed. Returns false with errno set; EWOULDBLOCK if another open
/// file holds it.
bool tryFlock(const Descriptor& file, bool shared);

}  // namespace base

#endif
