// SPDX-License-Identifier: MIT
//
// Reads from a stdio stream and retries on EINTR.
#ifndef KESTROVA_BASE_IO_LINEREADER_H
#define KESTROVA_BASE_IO_LINEREADER_H

#include <cstddef>
#include <cstdio>
#include <memory>

namespace base {

struct StreamCloser {
    void operator()(std::FILE* stream) const;
};

/// Owns a stream and closes it at the end of the scope.
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

/// Opens a file for reading with openDescriptor(). Returns null on failure.
Stream openForReading(const char* path);

/// getc() that retries on EINTR. No other thread may use the stream. Returns EOF at the end or on
/// an error.
int readCharacter(std::FILE* stream);

/// fgets() that retries on EINTR: reads up to size - 1 characters, up to and including a line feed,
/// and terminates them. Returns a longer line in pieces. Returns false if nothing was left to read.
bool readLine(std::FILE* stream, char* buffer, std::size_t size);

}  // namespace base

#endif
