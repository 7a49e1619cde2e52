// SPDX-License-Identifier: MIT
/// @file
/// The array type of the queries.
#ifndef KESTROVA_BASE_VECTOR_H
#define KESTROVA_BASE_VECTOR_H

#include <vector>

/// Growable array to which the system's queries append their results. The caller owns it. Because
/// it is a std::vector, the application and the library must be built with the same C++ standard
/// library and the same value of _GLIBCXX_USE_CXX11_ABI.
template <class T>
using KestrovaVector = std::vector<T>;

#endif
