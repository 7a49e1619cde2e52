// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_FETCH_OUTPUTFILE_H
#define KESTROVA_APP_COMMANDS_FETCH_OUTPUTFILE_H

#include <string>
#include <string_view>

#include "app/cli/result.h"
#include "app/ui/event.h"

namespace app {

/// Where a document is written: a file that has its name only when it is whole, or a stream.
///
/// A file is written under another name in the same folder, and takes its own name, in place of an
/// older file, at the end. What is no regular file (a pipe, a device) is written as it is.
/// A failure names the file. It has no message when the reader of standard output has gone: it has
/// what it wanted.
class OutputFile {
public:
    OutputFile() = default;
    /// Closes; removes what was not committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Opens a file at its path.
    Result open(const std::string& path);
    /// Writes to standard output, whose descriptor stays the caller's.
    void borrow(int descriptor);

    /// Writes all of it. Returns eCancelled after stop(), also while it waits for a slow reader.
    Result write(std::string_view bytes);
    /// Ends a write() in another thread, and every later one.
    void stop() const { mStop.set(); }

    /// Puts it on the disk, and gives it its name.
    Result commit();

    int descriptor() const { return mDescriptor; }

private:
    int openTemporary();
    Result failure(int error) const;

    int mDescriptor = -1;
    bool mOwned = false;
    bool mRegular = false;
    std::string mName;       // as given; empty for standard output
    std::string mPath;       // where it belongs
    std::string mTemporary;  // where it is; empty for what is written as it is
    Event mStop;
};

}  // namespace app

#endif
