// SPDX-License-Identifier: MIT
//
// The controls of the boot variables: the necessary system calls, or the processing of the bytes
// alone, without the library.
#ifndef KESTROVA_BENCH_BAREBOOTVARS_H
#define KESTROVA_BENCH_BAREBOOTVARS_H

#include <string>

namespace bench {

/// Makes the system calls of setting a variable on a partition that is mounted read-write: reads
/// the mount table and the file, writes the image to a second file, syncs it and renames it into
/// place.
void replaceEnvironment(const std::string& directory, const char* device, const std::string& image);

/// Finds the device's line in the mount table, as reading a variable must.
void findMount(const char* device);

/// Reads the file, checks its checksum and parses its records into a map. Returns the length of one
/// value.
unsigned long readVariable(const char* path, const char* name);

}  // namespace bench

#endif
