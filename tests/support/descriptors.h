// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_SUPPORT_DESCRIPTORS_H
#define KESTROVA_TESTS_SUPPORT_DESCRIPTORS_H

#include <set>
#include <string>

namespace tests {

/// The descriptors that the process has open.
std::set<int> openDescriptors();

/// Reads to the end of file and closes.
std::string readToEnd(int descriptor);

}  // namespace tests

#endif
