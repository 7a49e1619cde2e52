// SPDX-License-Identifier: MIT
#include "base/io/descriptor.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/cancelguard.h"
#include "base/errnokeeper.h"

namespace base {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        reset();
        mDescriptor = other.release();
    }
    return *this;
}

int Descriptor::release() {
    return std::exchange(mDescriptor, -1);
}

void Descriptor::reset() {
    const ErrnoKeeper keeper;
    (void)close();
}

bool Descriptor::close() {
    // A cancellation inside close() would leak the descriptor, because the object has already
    // released it.
    const CancelGuard guard;
    // Never retry: Linux frees the number even if close() is interrupted or fails.
    return mDescriptor < 0 || ::close(release()) == 0;
}

namespace {

/// Occupies the numbers of missing standard streams while a file is opened.
class Placeholders {
public:
    Placeholders() {
        for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
            if (::fcntl(number, F_GETFD) < 0) {
                const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
                if (null >= 0) {
                    mTaken[number] = Descriptor(null);
                }
            }
        }
    }

private:
    Descriptor mTaken[STDERR_FILENO + 1];
};

/// Moves a descriptor above the standard streams. Needed if another thread has just closed its
/// placeholder.
Descriptor aboveStandard(int descriptor) {
    Descriptor owned(descriptor);
    if (descriptor < 0 || descriptor > STDERR_FILENO) {
        return owned;
    }
    return Descriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace

Descriptor openDescriptor(const char* path, int flags, mode_t mode) {
    // A cancellation after open() has succeeded would leak the descriptor.
    const CancelGuard guard;
    const Placeholders placeholders;
    int descriptor = -1;
    do {
        descriptor = ::open(path, flags | O_CLOEXEC, mode);
    } while (descriptor < 0 && errno == EINTR);
    return aboveStandard(descriptor);
}

Descriptor openDescriptorAt(int folder, const char* path, int flags, mode_t mode) {
    // See openDescriptor().
    const CancelGuard guard;
    const Placeholders placeholders;
    int descriptor = -1;
    do {
        descriptor = ::openat(folder, path, flags | O_CLOEXEC, mode);
    } while (descriptor < 0 && errno == EINTR);
    return aboveStandard(descriptor);
}

Descriptor openSocket(int family, int type) {
    // Not cancellable, because moving the socket closes its first number. Placeholders are not
    // needed: a write to a missing standard stream at this moment only fails, because the socket
    // has no peer yet.
    const CancelGuard guard;
    return aboveStandard(::socket(family, type | SOCK_CLOEXEC, 0));
}

bool Pipe::open() {
    const CancelGuard guard;  // opening the placeholders is a cancellation point
    const Placeholders placeholders;
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    // Move both ends before closing either, so that neither end gets a number that the other still
    // holds.
    Descriptor readEnd = aboveStandard(ends[0]);
    Descriptor writeEnd = aboveStandard(ends[1]);
    if (!readEnd.valid() || !writeEnd.valid()) {
        return false;
    }
    mRead = std::move(readEnd);
    mWrite = std::move(writeEnd);
    return true;
}

bool readAt(int descriptor, off_t offset, void* buffer, std::size_t length) {
    char* bytes = static_cast<char*>(buffer);
    while (length > 0) {
        const ssize_t count = ::pread(descriptor, bytes, length, offset);
        if (count > 0) {
            bytes += count;
            offset += count;
            length -= static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

ssize_t readSome(int descriptor, void* buffer, std::size_t length) {
    ssize_t count = -1;
    do {
        count = ::read(descriptor, buffer, length);
    } while (count < 0 && errno == EINTR);
    return count;
}

bool writeAll(int descriptor, const void* bytes, std::size_t length) {
    const char* next = static_cast<const char*>(bytes);
    while (length > 0) {
        const ssize_t count = ::write(descriptor, next, length);
        if (count > 0) {
            next += count;
            length -= static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace base
