// SPDX-License-Identifier: MIT
//
// Descriptors that are close-on-exec from birth and never stand in for a missing standard stream.
#ifndef KESTROVA_BASE_IO_DESCRIPTOR_H
#define KESTROVA_BASE_IO_DESCRIPTOR_H

#include <sys/types.h>

#include <cstddef>

namespace base {

/// Owns a descriptor; closes it at the end of the scope. -1 is none.
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
    /// Hands the descriptor over to the caller.
    int release();
    /// Closes it now; keeps errno. Not a cancellation point.
    void reset();
    /// Closes it now. Returns whether that succeeded; errno tells why not, and the descriptor is
    /// closed all the same. Not a cancellation point.
    bool close();

private:
    int mDescriptor;
};

/// Opens a file close-on-exec; not valid on failure, errno tells why. The descriptor is above 2,
/// and has never been below, even when the caller runs with standard streams closed: what another
/// thread prints to descriptor 1 must not end up on a drive. Not a cancellation point.
Descriptor openDescriptor(const char* path, int flags, mode_t mode = 0);

/// Opens a path that begins at an open folder (openat(2)); otherwise like openDescriptor().
Descriptor openDescriptorAt(int folder, const char* path, int flags, mode_t mode = 0);

/// Makes a socket (socket(2), protocol 0) close-on-exec; not valid on failure, errno tells why. The
/// descriptor is above 2: one that took the place of a missing standard stream is moved. Not a
/// cancellation point.
Descriptor openSocket(int family, int type);

/// Both ends of a pipe.
struct Pipe {
    Descriptor mRead;
    Descriptor mWrite;

    /// Makes the pipe, both ends close-on-exec and above 2. On failure both stay invalid and errno
    /// tells why.
    bool open();
};

/// Reads `length` bytes at an offset; false when there are fewer, or on an error.
bool readAt(int descriptor, off_t offset, void* buffer, std::size_t length);

/// read() that goes on after an interruption.
ssize_t readSome(int descriptor, void* buffer, std::size_t length);

/// Writes all bytes; false on an error, errno tells which.
bool writeAll(int descriptor, const void* bytes, std::size_t length);

}  // namespace base

#endif
