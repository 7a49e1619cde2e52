// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_PROCESS_SIGPIPEGUARD_H
#define KESTROVA_BASE_PROCESS_SIGPIPEGUARD_H

#include <csignal>

namespace base {

/// Suppresses SIGPIPE in the calling thread for a scope: a write to a pipe or socket without a
/// reader only fails with EPIPE. The destructor discards the signal that such a write raised and
/// restores the thread's signal mask. A SIGPIPE that was already pending stays pending. Preserves
/// errno.
class SigpipeGuard {
public:
    SigpipeGuard();
    ~SigpipeGuard();
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

private:
    sigset_t mMask;
    bool mWasPending = false;
};

}  // namespace base

#endif
