// SPDX-License-Identifier: MIT
//
// The state of SIGPIPE in the calling thread.
#ifndef KESTROVA_TESTS_SUPPORT_SIGPIPE_H
#define KESTROVA_TESTS_SUPPORT_SIGPIPE_H

#include <pthread.h>

#include <csignal>

namespace tests::sigpipe {

inline bool isPending() {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

inline bool isBlocked() {
    sigset_t mask;
    return pthread_sigmask(SIG_SETMASK, nullptr, &mask) == 0 && sigismember(&mask, SIGPIPE) == 1;
}

inline void block() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    (void)pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace tests::sigpipe

#endif
