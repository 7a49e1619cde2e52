// SPDX-License-Identifier: MIT
//
// The controls of the boot variables: the system calls that the work needs, or the work on the
// bytes alone, without the library.
#ifndef KESTROVA_BENCH_BAREBOOTVARS_H
#define KESTROVA_BENCH_BAREBOOTVARS_H

#include <string>

namespace bench {

/// The system calls of setting a variable on a partition that is mounted read-write: the mount
/// table and the file are read, the image is written beside it, synced and rotated in.
void replaceEnvironment(const std::string& directory, const char* device, const std::string& image);

/// Finds the device's line in the mount table, as reading a variable has to.
void findMount(const char* device);

/// Reads the file, checks its checksum and takes its records apart into a map. Gives the length of
/// one value.
unsigned long readVariable(const char* path, const char* name);

}  // namespace bench

#endif
