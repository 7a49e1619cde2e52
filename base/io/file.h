// SPDX-License-Identifier: MIT
//
// Whole files. All functions block as long as the file system does and log nothing unless stated.
#ifndef KESTROVA_BASE_IO_FILE_H
#define KESTROVA_BASE_IO_FILE_H

#include <cstddef>
#include <vector>

#include "base/text/stringshared.h"

/// File type for kestrova_file_exists().
enum KestrovaFileExistsType {
    eFileExistsRegular = 0,    ///< a regular file
    eFileExistsDirectory = 1,  ///< a directory
    eFileExistsAny = 2,        ///< any type
};

/// True if the path, after following symbolic links, exists and has the given type.
bool kestrova_file_exists(const char* path, KestrovaFileExistsType kind);

/// Reads a whole file of less than 2147483647 bytes into `out`. Returns 0, or a negative value with
/// errno set on failure: `out` is then unchanged, and the error is also reported with perror(path)
/// if `reportFailure` is set. A larger file fails with EFBIG, before anything is read if the kernel
/// reports its size. Throws only std::bad_alloc, with `out` unchanged.
int kestrova_file_read(const char* path, KestrovaStringShared& out, bool reportFailure);

/// Creates or truncates a file and writes the bytes. `mode`, reduced by the umask, applies to a new
/// file only. Returns 0 only after the data has been written completely, synced and closed without
/// an error. Returns a negative value, with errno set, on failure; the bytes already written stay
/// in the file.
int kestrova_file_create_with_data(const char* path, unsigned int mode, const void* data,
                                   unsigned int length);

namespace base {

/// Reads the first `most` bytes of a file, or all of a shorter one, and replaces `bytes` with them.
/// Returns false on failure, with errno set and the bytes read so far in `bytes`. Throws only
/// std::bad_alloc.
bool readFileStart(const char* path, std::size_t most, std::vector<char>& bytes);

}  // namespace base

#endif
