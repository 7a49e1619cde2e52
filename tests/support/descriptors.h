// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_DESCRIPTORS_H
#define KESTROVA_TESTS_SUPPORT_DESCRIPTORS_H

#include <set>
#include <string>

namespace tests {

/// Returns the open descriptors of the process.
std::set<int> openDescriptors();

/// Reads to the end of the file and closes the descriptor.
std::string readToEnd(int descriptor);

}  // namespace tests

#endif
