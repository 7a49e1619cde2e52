// SPDX-License-Identifier: MIT
//
// The only reader of the kernel's mount table.
#ifndef KESTROVA_BASE_IO_MOUNTTABLE_H
#define KESTROVA_BASE_IO_MOUNTTABLE_H

#include <cstddef>
#include <string>

#include "base/io/linereader.h"

namespace base {

/// The first fields of a line of the mount table, as written by the kernel: a blank, tab, line feed
/// or backslash in a name is a backslash with three octal digits. The pointers point into the line.
struct MountEntry {
    const char* mDevice = "";
    const char* mDirectory = "";
    const char* mType = "";
    const char* mOptions = "";
    unsigned mFields = 0;  ///< number of these fields that the line has; the rest are ""
};

/// Splits a line at white space, in place.
MountEntry splitMountLine(char* line);

/// Returns a name of the mount table with the kernel's escapes decoded.
std::string unescapedMountName(const char* name);

/// Reads /proc/mounts line by line. A line that does not fit the caller's buffer is returned in
/// pieces, and each piece counts as a line.
class MountTable {
public:
    /// Opens the table. On failure opened() is false and errno is set.
    MountTable() : mStream(openForReading("/proc/mounts")) {}

    bool opened() const { return mStream != nullptr; }
    void close() { mStream.reset(); }
    /// Reads and splits the next line of the open table. The entry is valid while the buffer is
    /// unchanged. Returns false at the end of the table and on a read error: see failed().
    bool next(char* buffer, std::size_t size, MountEntry& entry);
    /// Returns whether reading the open table has failed.
    bool failed() const;

private:
    Stream mStream;
};

}  // namespace base

#endif
