// SPDX-License-Identifier: MIT
/// @file
/// Names the lock under which a field may be used, so that clang's thread-safety analysis checks it
/// (-Wthread-safety). The marks mean nothing to other compilers, and no type changes by them.
#ifndef KESTROVA_BASE_THREADSAFETY_H
#define KESTROVA_BASE_THREADSAFETY_H

#include <semaphore.h>

#include <mutex>

/// An attribute of clang's analysis.
#ifdef __clang__
#define KESTROVA_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define KESTROVA_THREAD_SAFETY(attribute)
#endif

/// A type whose objects are locks; the argument is what messages call one.
#define KESTROVA_CAPABILITY(name) KESTROVA_THREAD_SAFETY(capability(name))
/// A class that holds a lock from its constructor to its destructor.
#define KESTROVA_SCOPED_LOCK KESTROVA_THREAD_SAFETY(scoped_lockable)
/// A field that may be used only while the lock is held.
#define KESTROVA_GUARDED_BY(lock) KESTROVA_THREAD_SAFETY(guarded_by(lock))
/// A function that may be called only while the lock is held.
#define KESTROVA_REQUIRES(lock) KESTROVA_THREAD_SAFETY(requires_capability(lock))
/// A function that must not be called while the lock is held, because it takes it.
#define KESTROVA_EXCLUDES(lock) KESTROVA_THREAD_SAFETY(locks_excluded(lock))
/// A function that takes the lock; without an argument that of the scoped object.
#define KESTROVA_ACQUIRE(...) KESTROVA_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
/// A function that releases the lock; without an argument that of the scoped object.
#define KESTROVA_RELEASE(...) KESTROVA_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// A function whose body the analysis cannot follow; a comment beside it says why it is right.
#define KESTROVA_UNCHECKED_LOCKING KESTROVA_THREAD_SAFETY(no_thread_safety_analysis)

namespace base {

/// A mutex that the analysis knows as a lock.
using Mutex KESTROVA_CAPABILITY("mutex") = std::mutex;

/// A binary semaphore that the analysis knows as a lock. Unlike a mutex it may be released by
/// another thread than the one that took it.
using Semaphore KESTROVA_CAPABILITY("semaphore") = sem_t;

}  // namespace base

#endif
