// SPDX-License-Identifier: MIT
//
// Queries the kernel and the allocator about the calling process: whether everything that was
// started has ended, and whether a thread is really waiting.
#ifndef KESTROVA_TESTS_SUPPORT_PROCESSVIEW_H
#define KESTROVA_TESTS_SUPPORT_PROCESSVIEW_H

#include <sys/types.h>

#include <cstddef>
#include <set>

namespace tests {

std::set<pid_t> threadIds();

/// Number of threads of a program after its other threads have exited.
#ifdef __SANITIZE_THREAD__
constexpr std::size_t kOwnThreads = 2;  // includes the sanitizer's own thread
#else
constexpr std::size_t kOwnThreads = 1;
#endif

/// Bytes of the heap that are in use, in all arenas.
std::size_t heapInUse();

/// Return whether a thread of this process sleeps in a call in which threads wait for each other
/// (mutex, condition, semaphore, join), in connect(), in recv() or in write().
bool sleepsInFutex(pid_t thread);
bool sleepsInConnect(pid_t thread);
bool sleepsInReceive(pid_t thread);
bool sleepsInWrite(pid_t thread);
/// Returns whether a thread of this process sleeps in clock_nanosleep().
bool sleepsForATime(pid_t thread);

}  // namespace tests

#endif
