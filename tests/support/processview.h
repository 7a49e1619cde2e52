// SPDX-License-Identifier: MIT
//
// What the kernel and the allocator know of the calling process: whether all that was begun has
// ended, and whether a thread really waits.
#ifndef KESTROVA_TESTS_SUPPORT_PROCESSVIEW_H
#define KESTROVA_TESTS_SUPPORT_PROCESSVIEW_H

#include <sys/types.h>

#include <cstddef>
#include <set>

namespace tests {

std::set<pid_t> threadIds();

/// Threads of a program that has started and ended some.
#ifdef __SANITIZE_THREAD__
constexpr std::size_t kOwnThreads = 2;  // the sanitizer has one of its own
#else
constexpr std::size_t kOwnThreads = 1;
#endif

/// Bytes of the heap that are in use, in all arenas.
std::size_t heapInUse();

/// Whether a thread of this process sleeps in one of the calls by which threads wait for each
/// other (mutex, condition, semaphore, join), in connect, in a receive or in a write.
bool sleepsInFutex(pid_t thread);
bool sleepsInConnect(pid_t thread);
bool sleepsInReceive(pid_t thread);
bool sleepsInWrite(pid_t thread);
/// Whether a thread of this process sleeps in clock_nanosleep().
bool sleepsForATime(pid_t thread);

}  // namespace tests

#endif
