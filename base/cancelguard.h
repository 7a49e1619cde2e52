// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_CANCELGUARD_H
#define KESTROVA_BASE_CANCELGUARD_H

#include <pthread.h>

namespace base {

/// Disables cancellation of the calling thread for a scope. Destructors that call a cancellation
/// point need it, because a cancellation must not unwind through a destructor.
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
