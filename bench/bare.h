// SPDX-License-Identifier: MIT
//
// The controls: the system calls that drive management needs, without the library and without
// anything else.
#ifndef KESTROVA_BENCH_BARE_H
#define KESTROVA_BENCH_BARE_H

#include <string>

namespace bench {

/// Nice value of the long-running tools in the library.
constexpr int kLowPriority = 10;

/// Runs a tool at `niceness` above the current nice value, with its standard output in a pipe that
/// is read to its end. Returns its output; exits the program unless the tool's status is 0.
std::string runTool(const char* const* arguments, int niceness);

/// Reads and discards the whole mount table of the kernel.
void readMountTable();

/// Makes the system calls of starting and stopping the system with two formatted partitions.
void detectDrive(const std::string& drive);

}  // namespace bench

#endif
