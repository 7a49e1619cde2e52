// SPDX-License-Identifier: MIT
//
// The allocator of the torture program: refuses memory to the library as planned, and lists the
// library's blocks until they are freed.
#ifndef KESTROVA_TESTS_TORTURE_MEMORY_H
#define KESTROVA_TESTS_TORTURE_MEMORY_H

#include <string>

namespace torture {

/// Returns the number of blocks that the library has allocated and not freed.
int piecesHeld();
/// Returns the places of their allocations, one per line; "" if there are none.
std::string describePieces();

}  // namespace torture

#endif
