// SPDX-License-Identifier: MIT
/// @file
/// The array type of the queries.
#ifndef KESTROVA_BASE_VECTOR_H
#define KESTROVA_BASE_VECTOR_H

#include <vector>

/// Growable array to which the system's queries append their results. The caller owns it.
template <class T>
using KestrovaVector = std::vector<T>;

#endif
