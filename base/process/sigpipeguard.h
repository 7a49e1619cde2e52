// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_PROCESS_SIGPIPEGUARD_H
#define KESTROVA_BASE_PROCESS_SIGPIPEGUARD_H

#include <csignal>

namespace base {

/// Keeps SIGPIPE from the calling thread for a scope: a write to a pipe or socket whose reader is
/// gone then only fails with EPIPE. At the end the signal that such a write raised is taken back
/// and the thread's signal mask is as before. A SIGPIPE that was already pending stays pending.
/// Keeps errno.
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
