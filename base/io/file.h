// SPDX-License-Identifier: MIT
//
// Whole files. All of these block for as long as the file system takes; none logs unless it says
// so.
#ifndef KESTROVA_BASE_IO_FILE_H
#define KESTROVA_BASE_IO_FILE_H

#include <cstddef>
#include <vector>

#include "base/text/stringshared.h"

/// What kestrova_file_exists() looks for.
enum KestrovaFileExistsType {
    eFileExistsRegular = 0,    ///< a regular file
    eFileExistsDirectory = 1,  ///< a directory
    eFileExistsAny = 2,        ///< anything with that name
};

/// True when the path, symbolic links followed, exists as the given kind.
bool kestrova_file_exists(const char* path, KestrovaFileExistsType kind);

/// Reads a whole file of less than 2147483647 bytes into `out`. Returns 0, or a negative value on
/// failure: `out` is then as it was and errno tells why, which is also reported with perror(path)
/// when `reportFailure` is set. A larger file fails with EFBIG; one whose size the kernel reports
/// fails before anything is read. Only allocation failure is thrown, with `out` as it was.
int kestrova_file_read(const char* path, KestrovaStringShared& out, bool reportFailure);

/// Creates or truncates a file and writes the bytes. `mode` counts, less the umask, for a file that
/// is new. Returns 0 only when the data are on the disk: written whole, synced and closed without
/// an error. A negative value is a failure, errno tells why; what was written so far stays.
int kestrova_file_create_with_data(const char* path, unsigned int mode, const void* data,
                                   unsigned int length);

namespace base {

/// Reads the first `most` bytes of a file, or all of a shorter one, and replaces `bytes` by them.
/// Returns false on failure: errno tells why, and `bytes` holds what was read until then. Only
/// allocation failure is thrown.
bool readFileStart(const char* path, std::size_t most, std::vector<char>& bytes);

}  // namespace base

#endif
