// SPDX-License-Identifier: MIT
//
// Compiled without sanitizers: in a child that shares the caller's memory they would overwrite the
// caller's stack records.
#include "base/process/childprocess.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "base/process/interruptsignals.h"

namespace base {

namespace {

/// Sets a signal's default action in this process only. Bypasses sigaction(), because the thread
/// sanitizer answers that call from its own memory, which may be the caller's.
void setDefaultAction(int number) {
    constexpr std::size_t kernelMaskBytes = 8;
    // All zero is the default action without flags and mask, in the kernel's layout on every
    // machine.
    const unsigned long defaultAction[8] = {};
    (void)::syscall(SYS_rt_sigaction, number, defaultAction, nullptr, kernelMaskBytes);
}

/// Removes the caller's handlers before the mask lets a signal through: they must not run in the
/// child.
void dropHandlers(unsigned defaultSignals) {
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction present = {};
        // The C library hides its own signals. Their handlers do no harm: no process sends these
        // signals to the child, and execve() resets handlers.
        if (::sigaction(number, nullptr, &present) != 0 || present.sa_handler == SIG_DFL) {
            continue;
        }
        if (present.sa_handler != SIG_IGN || (defaultSignals & interruptBit(number)) != 0) {
            setDefaultAction(number);
        }
    }
}

bool connectStreams(const ChildSettings& settings) {
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        if (settings.mStreams[number] >= 0 && ::dup2(settings.mStreams[number], number) < 0) {
            return false;
        }
    }
    for (const int kept : settings.mKept) {
        if (kept >= 0 && ::fcntl(kept, F_SETFD, 0) < 0) {
            return false;
        }
    }
    if (settings.mFillStreams) {
        fillStandardStreams();
    }
    return true;
}

bool setUp(const ChildSettings& settings, const ChildSignals& signals) {
    dropHandlers(signals.mDefaultSignals);
    (void)pthread_sigmask(SIG_SETMASK, &signals.mMask, nullptr);
    if (!connectStreams(settings)) {
        return false;
    }
    if (settings.mNice != 0) {
        // On failure the child keeps the caller's priority.
        [[maybe_unused]] const int priority = ::nice(settings.mNice);
    }
    if (settings.mHook != nullptr) {
        settings.mHook(settings.mHookArgument);
    }
    return true;
}

bool isNullDevice(int descriptor) {
    constexpr unsigned memoryDevices = 1;
    constexpr unsigned nullDevice = 3;
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode) &&
           status.st_rdev == makedev(memoryDevices, nullDevice);
}

}  // namespace

int becomeProgram(const ChildSettings& settings, const ChildSignals& signals) {
    if (settings.mDetached) {
        closeDescriptorsFrom(STDERR_FILENO + 1);
        resetSignals();
        if (!detachChild()) {
            return settings.mFailureStatus;
        }
    }
    if (settings.mDetached || setUp(settings, signals)) {
        (void)::execve(settings.mArguments[0], const_cast<char* const*>(settings.mArguments),
                       settings.mEnvironment);
    }
    if (settings.mpError != nullptr) {
        *settings.mpError = errno;
    }
    if (settings.mFailureText != nullptr) {
        reportInChild(settings.mFailureText);
    }
    return settings.mFailureStatus;
}

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
    // Kernels before 5.9 have no close_range(): close every possible number.
    rlimit limit = {};
    (void)::getrlimit(RLIMIT_NOFILE, &limit);
    for (auto descriptor = static_cast<rlim_t>(first); descriptor < limit.rlim_cur; ++descriptor) {
        (void)::close(static_cast<int>(descriptor));
    }
}

void reportInChild(const char* text) {
    const char* const reason = ::strerrordesc_np(errno);
    const char* const pieces[] = {text, ": ", reason != nullptr ? reason : "Unknown error", "\n"};
    iovec line[4] = {};
    for (int i = 0; i < 4; ++i) {
        line[i] = {const_cast<char*>(pieces[i]), std::strlen(pieces[i])};
    }
    while (::writev(STDERR_FILENO, line, 4) < 0 && errno == EINTR) {
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
    // If "/dev/null" is a regular file, it would collect what the program prints.
    if (null < 0 || !isNullDevice(null)) {
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
