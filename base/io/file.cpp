// SPDX-License-Identifier: MIT
#include "base/io/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <vector>

#include "base/errnokeeper.h"
#include "base/io/descriptor.h"

namespace {

constexpr std::size_t kFirstRead = 4096;
constexpr std::size_t kLargest = INT_MAX;  // also the largest size of a vector in 32 bits

/// Reads to the end of the file, but at most `most` bytes. Returns false, with errno set, on an
/// error. `size` is only a first guess, because the kernel reports 0 for many files that are not
/// empty.
bool readBytes(int descriptor, std::size_t size, std::size_t most, std::vector<char>& bytes) {
    std::size_t used = 0;
    bytes.resize(std::min(std::max(size, kFirstRead), most));
    while (used < bytes.size()) {
        const ssize_t count = base::readSome(descriptor, bytes.data() + used, bytes.size() - used);
        if (count <= 0) {
            bytes.resize(used);
            return count == 0;
        }
        used += static_cast<std::size_t>(count);
        if (used == bytes.size()) {
            bytes.resize(used < most / 2 ? used * 2 : most);
        }
    }
    return true;
}

/// Reads the whole file. Returns false, with errno set, on an error.
bool readWhole(int descriptor, std::vector<char>& bytes) {
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        return false;
    }
    if (status.st_size < static_cast<off_t>(kLargest)) {
        // One extra byte leaves room for the read that finds the end of the file.
        const std::size_t room = static_cast<std::size_t>(status.st_size) + 1;
        if (!readBytes(descriptor, room, kLargest, bytes)) {
            return false;
        }
        if (bytes.size() < kLargest) {
            return true;
        }
    }
    errno = EFBIG;
    return false;
}

bool readFile(const char* path, KestrovaStringShared& out) {
    const base::Descriptor file = base::openDescriptor(path, O_RDONLY);
    std::vector<char> bytes;
    if (!file.valid() || !readWhole(file.get(), bytes)) {
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

namespace base {

bool readFileStart(const char* path, std::size_t most, std::vector<char>& bytes) {
    const Descriptor file = openDescriptor(path, O_RDONLY);
    return file.valid() && readBytes(file.get(), most, most, bytes);
}

}  // namespace base
