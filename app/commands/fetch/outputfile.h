// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_FETCH_OUTPUTFILE_H
#define KESTROVA_APP_COMMANDS_FETCH_OUTPUTFILE_H

#include <string>
#include <string_view>

#include "app/cli/result.h"
#include "app/ui/event.h"

namespace app {

/// Output of a document: a file that gets its name only when it is complete, or a stream.
///
/// A file is written under a temporary name in the same directory, and renamed at the end, which
/// replaces an older file. A pipe or a device is written directly. A failure names the file, but
/// has no message if the reader of standard output has exited, because it needs no more data.
class OutputFile {
public:
    OutputFile() = default;
    /// Closes the file, and removes it if it was not committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Opens a file at its path.
    Result open(const std::string& path);
    /// Writes to standard output, whose descriptor the caller still owns.
    void borrow(int descriptor);

    /// Writes all bytes. Returns eCancelled after stop(), even while it waits for a slow reader.
    Result write(std::string_view bytes);
    /// Cancels a write() in another thread, and every later one.
    void stop() const { mStop.set(); }

    /// Syncs the file to disk, and renames it.
    Result commit();

    int descriptor() const { return mDescriptor; }

private:
    int openTemporary();
    Result failure(int error) const;

    int mDescriptor = -1;
    bool mOwned = false;
    bool mRegular = false;
    std::string mName;       // as given; empty for standard output
    std::string mPath;       // final path
    std::string mTemporary;  // current path; empty for a pipe or a device
    Event mStop;
};

}  // namespace app

#endif
