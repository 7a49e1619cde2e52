// SPDX-License-Identifier: MIT
/// @file
/// Names the lock under which a field may be used, so that clang's thread-safety analysis
/// (-Wthread-safety) checks it. Other compilers ignore the attributes, and they change no type.
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

/// A type whose objects are locks. Diagnostics use the argument as its name.
#define KESTROVA_CAPABILITY(name) KESTROVA_THREAD_SAFETY(capability(name))
/// A class that holds a lock from its constructor to its destructor.
#define KESTROVA_SCOPED_LOCK KESTROVA_THREAD_SAFETY(scoped_lockable)
/// A field that may be used only while the lock is held.
#define KESTROVA_GUARDED_BY(lock) KESTROVA_THREAD_SAFETY(guarded_by(lock))
/// A function that may be called only while the lock is held.
#define KESTROVA_REQUIRES(lock) KESTROVA_THREAD_SAFETY(requires_capability(lock))
/// A function that must not be called while the lock is held, because it takes it.
#define KESTROVA_EXCLUDES(lock) KESTROVA_THREAD_SAFETY(locks_excluded(lock))
/// A function that acquires the lock, or without an argument the lock of the scoped object.
#define KESTROVA_ACQUIRE(...) KESTROVA_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
/// A function that releases the lock, or without an argument the lock of the scoped object.
#define KESTROVA_RELEASE(...) KESTROVA_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// A function whose body the analysis cannot follow. A comment beside it says why it is correct.
#define KESTROVA_UNCHECKED_LOCKING KESTROVA_THREAD_SAFETY(no_thread_safety_analysis)

namespace base {

/// A mutex that the analysis recognises as a lock.
using Mutex KESTROVA_CAPABILITY("mutex") = std::mutex;

/// A binary semaphore that the analysis recognises as a lock. Unlike a mutex it may be released by
/// a thread other than the one that acquired it.
using Semaphore KESTROVA_CAPABILITY("semaphore") = sem_t;

}  // namespace base

#endif
