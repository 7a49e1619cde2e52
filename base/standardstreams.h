// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_STANDARDSTREAMS_H
#define KESTROVA_BASE_STANDARDSTREAMS_H

namespace base {

/// In a child before exec: opens /dev/null on each of descriptors 0, 1 and 2 that is closed, so
/// that the first file the program opens does not become its standard error.
void fillStandardStreams();

}  // namespace base

#endif
