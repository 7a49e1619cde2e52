// SPDX-License-Identifier: MIT
//
// The controls: what drive management needs of the system, done without the library and with
// nothing around it. They leave out whatever does not have to be.
#ifndef KESTROVA_BENCH_BARE_H
#define KESTROVA_BENCH_BARE_H

#include <string>

namespace bench {

/// Nice value at which the library runs the long tools.
constexpr int kLowPriority = 10;

/// Runs a tool, its standard output into a pipe that is read to its end, `niceness` added to its
/// nice value. Returns what it printed; ends the program unless its status is 0.
std::string runTool(const char* const* arguments, int niceness);

/// Reads the kernel's whole mount table and throws it away.
void readMountTable();

/// The system calls of one start and end of the system with two formatted partitions.
void detectDrive(const std::string& drive);

}  // namespace bench

#endif
