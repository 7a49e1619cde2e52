// SPDX-License-Identifier: MIT
//
// The system calls of the library under test, implemented by the disk in memory. They replace the C
// library's. An unexpected call ends the program.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/crash/memorydisk.h"

using crash::memoryDisk;

extern "C" {

int open(const char* path, int flags, ...) {
    return memoryDisk().open(path, flags);
}

int close(int descriptor) {
    return memoryDisk().owns(descriptor) ? memoryDisk().close(descriptor)
                                         : static_cast<int>(::syscall(SYS_close, descriptor));
}

int fcntl(int /*descriptor*/, int command, ...) {
    // The standard streams are open.
    return command == F_GETFD ? 0 : -1;
}

std::FILE* fdopen(int descriptor, const char* /*mode*/) noexcept {
    if (!memoryDisk().owns(descriptor) || !memoryDisk().isMountTable(descriptor)) {
        std::abort();
    }
    // A copy in a stream of the C library; the stream does not own the descriptor.
    std::string table = memoryDisk().mountTable();
    std::FILE* const stream = ::fmemopen(nullptr, table.size() + 1, "w+");
    if (stream != nullptr) {
        (void)std::fwrite(table.data(), 1, table.size(), stream);
        std::rewind(stream);
        (void)memoryDisk().close(descriptor);
    }
    return stream;
}

ssize_t read(int descriptor, void* buffer, size_t length) {
    return memoryDisk().owns(descriptor) ? memoryDisk().read(descriptor, buffer, length)
                                         : ::syscall(SYS_read, descriptor, buffer, length);
}

ssize_t write(int descriptor, const void* bytes, size_t length) {
    return memoryDisk().owns(descriptor) ? memoryDisk().write(descriptor, bytes, length)
                                         : ::syscall(SYS_write, descriptor, bytes, length);
}

int fsync(int descriptor) {
    return memoryDisk().sync(descriptor);
}

int rename(const char* from, const char* to) noexcept {
    return memoryDisk().rename(from, to);
}

int unlink(const char* path) noexcept {
    return memoryDisk().unlink(path);
}

int flock(int descriptor, int /*operation*/) noexcept {
    // There is no other process.
    return memoryDisk().owns(descriptor) ? 0 : -1;
}

int stat(const char* path, struct stat* status) noexcept {
    *status = {};
    if (std::strcmp(path, crash::kDevice) == 0) {
        status->st_mode = S_IFBLK | 0660U;
        status->st_rdev = makedev(8, 17);
        return 0;
    }
    if (path[0] == '/' && memoryDisk().isFile(path)) {
        status->st_mode = S_IFREG | 0755U;
        return 0;
    }
    errno = ENOENT;
    return -1;
}

int mount(const char* /*device*/, const char* /*directory*/, const char* /*type*/,
          unsigned long flags, const void* /*data*/) noexcept {
    return memoryDisk().mount(flags);
}

int umount(const char* /*directory*/) noexcept {
    return memoryDisk().unmount();
}

void sync() noexcept {
    memoryDisk().syncAll();
}

}  // extern "C"
