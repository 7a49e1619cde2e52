// SPDX-License-Identifier: MIT
#include "base/process/sigpipeguard.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>

#include "base/cancelguard.h"
#include "base/errnokeeper.h"

namespace base {

namespace {

bool sigpipePending() {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

sigset_t onlySigpipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

}  // namespace

SigpipeGuard::SigpipeGuard() : mMask() {
    const sigset_t sigpipe = onlySigpipe();
    (void)pthread_sigmask(SIG_BLOCK, &sigpipe, &mMask);
    // A thread that did not block the signal cannot have one pending.
    mWasPending = sigismember(&mMask, SIGPIPE) == 1 && sigpipePending();
}

SigpipeGuard::~SigpipeGuard() {
    const ErrnoKeeper keeper;
    const CancelGuard guard;
    if (!mWasPending) {
        const sigset_t sigpipe = onlySigpipe();
        const timespec now = {0, 0};
        while (sigtimedwait(&sigpipe, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    (void)pthread_sigmask(SIG_SETMASK, &mMask, nullptr);
}

}  // namespace base
