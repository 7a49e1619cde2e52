// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_CANCELGUARD_H
#define KESTROVA_BASE_CANCELGUARD_H

#include <pthread.h>

namespace base {

/// Keeps the calling thread from being cancelled for a scope. For destructors that make a call
/// which a cancellation could end: nothing may unwind through them.
class CancelGuard {
public:
    CancelGuard() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mState); }
    ~CancelGuard() { (void)pthread_setcancelstate(mState, nullptr); }
    CancelGuard(const CancelGuard&) = delete;
    CancelGuard& operator=(const CancelGuard&) = delete;

private:
    int mState = PTHREAD_CANCEL_ENABLE;
};

}  // namespace base

#endif
