// SPDX-License-Identifier: MIT
//
// The allocator of the torture program: memory that the library takes is refused as the plan says,
// and listed until it is given back.
#ifndef KESTROVA_TESTS_TORTURE_MEMORY_H
#define KESTROVA_TESTS_TORTURE_MEMORY_H

#include <string>

namespace torture {

/// Pieces of memory that the library has taken and not given back.
int piecesHeld();
/// Where they were taken, a line; "" for none.
std::string describePieces();

}  // namespace torture

#endif
