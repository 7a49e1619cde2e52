// SPDX-License-Identifier: MIT
//
// Reading from a stdio stream that a signal may interrupt.
#ifndef KESTROVA_BASE_IO_LINEREADER_H
#define KESTROVA_BASE_IO_LINEREADER_H

#include <cstddef>
#include <cstdio>
#include <memory>

namespace base {

struct StreamCloser {
    void operator()(std::FILE* stream) const;
};

/// Owns a stream; closes it at the end of the scope.
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

/// Opens a file for reading, close-on-exec, as openDescriptor() does; null on failure.
Stream openForReading(const char* path);

/// getc that goes on after an interruption, on a stream that no other thread uses. EOF at the end
/// or on an error.
int readCharacter(std::FILE* stream);

/// fgets that goes on after an interruption: reads up to size - 1 characters, up to and with a line
/// feed, and terminates them. A longer line comes in pieces. False when nothing was left to read.
bool readLine(std::FILE* stream, char* buffer, std::size_t size);

}  // namespace base

#endif
