// SPDX-License-Identifier: MIT
//
// What a child does between fork and exec: only what is safe in the child of a threaded process.
#ifndef KESTROVA_BASE_CHILDPROCESS_H
#define KESTROVA_BASE_CHILDPROCESS_H

namespace base {

/// True when a program executed from here finds the descriptor open. One that closes on exec is
/// some other file that has taken the number.
bool passedOn(int descriptor);

/// Opens /dev/null on each of descriptors 0, 1 and 2 that the program would find closed, so that
/// the first file it opens does not become its standard error.
void fillStandardStreams();

/// perror without stdio.
void reportInChild(const char* text);

}  // namespace base

#endif
