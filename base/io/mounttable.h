// SPDX-License-Identifier: MIT
//
// The one reader of the kernel's mount table. Its callers decide how much of an entry they need.
#ifndef KESTROVA_BASE_IO_MOUNTTABLE_H
#define KESTROVA_BASE_IO_MOUNTTABLE_H

#include <cstddef>
#include <string>

#include "base/io/linereader.h"

namespace base {

/// The first fields of a line of the mount table, as the kernel writes them: a blank, tab, line
/// feed or backslash in a name is a backslash with three octal digits. They point into the line.
struct MountEntry {
    const char* mDevice = "";
    const char* mDirectory = "";
    const char* mType = "";
    const char* mOptions = "";
    unsigned mFields = 0;  ///< how many of the four the line has; the others are ""
};

/// Splits a line at white space, in place.
MountEntry splitMountLine(char* line);

/// A name of the mount table without the kernel's escapes.
std::string unescapedMountName(const char* name);

/// Reads /proc/mounts line by line. A line that does not fit the caller's buffer comes in pieces,
/// and each piece counts as a line.
class MountTable {
public:
    /// Opens the table; errno says why it is not opened.
    MountTable() : mStream(openForReading("/proc/mounts")) {}

    bool opened() const { return mStream != nullptr; }
    void close() { mStream.reset(); }
    /// Reads and splits the next line. The entry is valid as long as the buffer is unchanged.
    /// Returns false at the end of the table, which must be open, and when it cannot be read: see
    /// failed().
    bool next(char* buffer, std::size_t size, MountEntry& entry);
    /// Whether reading the table, which must be open, has failed.
    bool failed() const;

private:
    Stream mStream;
};

}  // namespace base

#endif
