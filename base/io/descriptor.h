// SPDX-License-Identifier: MIT
//
// Descriptors that are close-on-exec from creation and never get the number of a standard stream.
#ifndef KESTROVA_BASE_IO_DESCRIPTOR_H
#define KESTROVA_BASE_IO_DESCRIPTOR_H

#include <sys/types.h>

#include <cstddef>

namespace base {

/// Owns a descriptor and closes it at the end of the scope. -1 means none.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : mDescriptor(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : mDescriptor(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool valid() const { return mDescriptor >= 0; }
    int get() const { return mDescriptor; }
    /// Transfers ownership of the descriptor to the caller.
    int release();
    /// Closes the descriptor and preserves errno. Not a cancellation point.
    void reset();
    /// Closes the descriptor. Returns false with errno set on failure; the descriptor is closed in
    /// this case as well. Not a cancellation point.
    bool close();

private:
    int mDescriptor;
};

/// Opens a file close-on-exec. Returns an invalid object, with errno set, on failure. The
/// descriptor is never 0 to 2, not even temporarily, even if the caller runs with standard streams
/// closed: otherwise the output of another thread could be written to a drive. Not a cancellation
/// point.
Descriptor openDescriptor(const char* path, int flags, mode_t mode = 0);

/// Like openDescriptor(), for a path relative to an open directory (openat(2)).
Descriptor openDescriptorAt(int folder, const char* path, int flags, mode_t mode = 0);

/// Creates a socket (socket(2), protocol 0) close-on-exec. Returns an invalid object, with errno
/// set, on failure. The descriptor is above 2: a socket that gets the number of a missing standard
/// stream is moved. Not a cancellation point.
Descriptor openSocket(int family, int type);

/// Both ends of a pipe.
struct Pipe {
    Descriptor mRead;
    Descriptor mWrite;

    /// Creates the pipe, both ends close-on-exec and above 2. On failure both stay invalid and
    /// errno is set.
    bool open();
};

/// Reads `length` bytes at an offset. Returns false if there are fewer, or on an error.
bool readAt(int descriptor, off_t offset, void* buffer, std::size_t length);

/// read() that retries on EINTR.
ssize_t readSome(int descriptor, void* buffer, std::size_t length);

/// Writes all bytes. Returns false, with errno set, on an error.
bool writeAll(int descriptor, const void* bytes, std::size_t length);

}  // namespace base

#endif
