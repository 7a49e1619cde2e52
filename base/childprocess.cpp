// SPDX-License-Identifier: MIT
#include "base/childprocess.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/descriptor.h"

namespace base {

bool passedOn(int descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFD);
    return flags >= 0 && (flags & FD_CLOEXEC) == 0;
}

void fillStandardStreams() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (passedOn(descriptor)) {
            continue;
        }
        const int null = ::open("/dev/null", O_RDWR);
        if (null >= 0 && null != descriptor) {
            (void)::dup2(null, descriptor);
            (void)::close(null);
        }
    }
}

void reportInChild(const char* text) {
    const char* const reason = ::strerrordesc_np(errno);
    const char* const pieces[] = {text, ": ", reason != nullptr ? reason : "Unknown error", "\n"};
    for (const char* const piece : pieces) {
        (void)writeAll(STDERR_FILENO, piece, std::strlen(piece));
    }
}

}  // namespace base
