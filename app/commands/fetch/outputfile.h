// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_FETCH_OUTPUTFILE_H
#define KESTROVA_APP_COMMANDS_FETCH_OUTPUTFILE_H

#include <string>
#include <string_view>

#include "app/ui/event.h"

namespace app {

/// Where a document is written: a file that has its name only when it is whole, or a stream.
///
/// A file is written under another name in the same folder, and takes its own name, in place of an
/// older file, at the end. What is no regular file (a pipe, a device) is written as it is.
/// Operations return 0, or the errno of the failure.
class OutputFile {
public:
    OutputFile() = default;
    /// Closes; removes what was not committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int open(const std::string& path);
    /// Writes to an open descriptor, which stays the caller's.
    void borrow(int descriptor);

    /// Writes all of it; ECANCELED after stop(), also when it is stuck on a reader that is slow.
    int write(std::string_view bytes);
    /// Ends a write() of another thread, and all that follow.
    void stop() const { mStop.set(); }

    /// Puts it on the disk, and gives it its name.
    int commit();

    int descriptor() const { return mDescriptor; }

private:
    int openTemporary();

    int mDescriptor = -1;
    bool mOwned = false;
    bool mRegular = false;
    std::string mPath;       // where it belongs
    std::string mTemporary;  // where it is; empty for what is written as it is
    Event mStop;
};

}  // namespace app

#endif
