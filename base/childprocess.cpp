// SPDX-License-Identifier: MIT
#include "base/childprocess.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
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

void closeDescriptorsFrom(int first) {
    if (::close_range(static_cast<unsigned>(first), UINT_MAX, 0) == 0) {
        return;
    }
    // A kernel before 5.9: one by one, as many as there can be.
    rlimit limit = {};
    (void)::getrlimit(RLIMIT_NOFILE, &limit);
    for (auto descriptor = static_cast<rlim_t>(first); descriptor < limit.rlim_cur; ++descriptor) {
        (void)::close(static_cast<int>(descriptor));
    }
}

void reportInChild(const char* text) {
    const char* const reason = ::strerrordesc_np(errno);
    const char* const pieces[] = {text, ": ", reason != nullptr ? reason : "Unknown error", "\n"};
    for (const char* const piece : pieces) {
        (void)writeAll(STDERR_FILENO, piece, std::strlen(piece));
    }
}

void resetSignals() {
    for (int number = 1; number < NSIG; ++number) {
        (void)::signal(number, SIG_DFL);
    }
    sigset_t none;
    (void)sigemptyset(&none);
    (void)pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

bool detachChild() {
    const pid_t child = ::_Fork();
    if (child < 0) {
        return false;
    }
    if (child > 0) {
        ::_exit(0);
    }
    if (::setsid() < 0 || ::chdir("/") != 0) {
        return false;
    }
    const int null = ::open("/dev/null", O_RDWR);
    if (null < 0) {
        return false;
    }
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::dup2(null, descriptor) < 0) {
            return false;
        }
    }
    if (null > STDERR_FILENO) {
        (void)::close(null);
    }
    return true;
}

}  // namespace base
