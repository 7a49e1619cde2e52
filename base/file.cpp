// SPDX-License-Identifier: MIT
#include "base/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <vector>

#include "base/descriptor.h"
#include "base/errnokeeper.h"

namespace {

constexpr std::size_t kFirstRead = 4096;
constexpr std::size_t kLargest = INT_MAX;  // also the most that a vector holds in 32 bits

/// Reads to the end of the file; false on an error, errno tells which.
bool readToEnd(int descriptor, std::vector<char>& bytes) {
    std::size_t used = 0;
    bytes.resize(kFirstRead);
    for (;;) {
        const ssize_t count = base::readSome(descriptor, bytes.data() + used, bytes.size() - used);
        if (count <= 0) {
            bytes.resize(used);
            return count == 0;
        }
        used += static_cast<std::size_t>(count);
        if (used == kLargest) {
            errno = EFBIG;
            return false;
        }
        if (used == bytes.size()) {
            bytes.resize(std::min(used * 2, kLargest));
        }
    }
}

bool readFile(const char* path, KestrovaStringShared& out) {
    const base::Descriptor file = base::openDescriptor(path, O_RDONLY);
    std::vector<char> bytes;
    if (!file.valid() || !readToEnd(file.get(), bytes)) {
        return false;
    }
    out = KestrovaStringShared(bytes.data(), bytes.size());
    return true;
}

}  // namespace

bool kestrova_file_exists(const char* path, KestrovaFileExistsType kind) {
    struct stat status = {};
    if (::stat(path, &status) != 0) {
        return false;
    }
    switch (kind) {
        case eFileExistsRegular:
            return S_ISREG(status.st_mode);
        case eFileExistsDirectory:
            return S_ISDIR(status.st_mode);
        case eFileExistsAny:
            return true;
    }
    return false;
}

int kestrova_file_read(const char* path, KestrovaStringShared& out, bool reportFailure) {
    if (readFile(path, out)) {
        return 0;
    }
    if (reportFailure) {
        const base::ErrnoKeeper keeper;
        std::perror(path);
    }
    return -1;
}

int kestrova_file_create_with_data(const char* path, unsigned int mode, const void* data,
                                   unsigned int length) {
    base::Descriptor file = base::openDescriptor(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
    if (!file.valid() || !base::writeAll(file.get(), data, length) || ::fsync(file.get()) != 0 ||
        !file.close()) {
        return -1;
    }
    return 0;
}
