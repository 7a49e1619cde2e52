// SPDX-License-Identifier: MIT
/// @file
/// The array type of the queries.
#ifndef KESTROVA_BASE_VECTOR_H
#define KESTROVA_BASE_VECTOR_H

#include <vector>

/// The growable array that the queries of the system append their results to. The caller owns it:
/// it makes it empty, passes its address, reads what was appended and destroys it.
template <class T>
using KestrovaVector = std::vector<T>;

#endif
