// SPDX-License-Identifier: MIT
//
// Scoped locks that clang's thread-safety analysis can follow.
#ifndef KESTROVA_BASE_LOCK_H
#define KESTROVA_BASE_LOCK_H

#include <cerrno>

#include "base/threadsafety.h"

namespace base {

/// Holds a mutex for a scope.
class KESTROVA_SCOPED_LOCK Lock {
public:
    explicit Lock(Mutex& mutex) KESTROVA_ACQUIRE(mutex) : mMutex(mutex) { mMutex.lock(); }
    ~Lock() KESTROVA_RELEASE() { mMutex.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    std::mutex& mMutex;
};

/// Takes a binary semaphore, retrying on EINTR. A cancellation point.
// Unchecked, because the analysis does not know what sem_wait() does.
inline void lockSemaphore(Semaphore& semaphore)
    KESTROVA_ACQUIRE(semaphore) KESTROVA_UNCHECKED_LOCKING {
    while (sem_wait(&semaphore) != 0 && errno == EINTR) {
    }
}

/// Releases a binary semaphore, on any thread. Another thread may take and destroy the semaphore
/// before this function returns.
// Unchecked, because the analysis does not know what sem_post() does.
inline void unlockSemaphore(Semaphore& semaphore)
    KESTROVA_RELEASE(semaphore) KESTROVA_UNCHECKED_LOCKING {
    (void)sem_post(&semaphore);
}

/// Holds a binary semaphore for a scope, or until unlock() or handOver().
class KESTROVA_SCOPED_LOCK SemaphoreLock {
public:
    explicit SemaphoreLock(Semaphore& semaphore) KESTROVA_ACQUIRE(semaphore)
        : mpSemaphore(&semaphore) {
        lockSemaphore(semaphore);
    }
    ~SemaphoreLock() KESTROVA_RELEASE() { unlock(); }
    SemaphoreLock(const SemaphoreLock&) = delete;
    SemaphoreLock& operator=(const SemaphoreLock&) = delete;

    /// Releases the semaphore, unless that has already been done.
    void unlock() KESTROVA_RELEASE() {
        if (mpSemaphore != nullptr) {
            (void)sem_post(mpSemaphore);
        }
        mpSemaphore = nullptr;
    }
    /// Leaves the semaphore taken for another thread to release.
    void handOver() KESTROVA_RELEASE() { mpSemaphore = nullptr; }

private:
    sem_t* mpSemaphore;
};

}  // namespace base

#endif
