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

/// Closes all descriptors from this one upward.
void closeDescriptorsFrom(int first);

/// perror without stdio.
void reportInChild(const char* text);

/// Blocks, handles and ignores no signal from here on, as a program that no application has
/// started.
void resetSignals();

/// Goes on as a detached process: another child in a session of its own, in the root directory,
/// with /dev/null as its standard streams; the first child ends with status 0. False when that
/// failed.
bool detachChild();

}  // namespace base

#endif
