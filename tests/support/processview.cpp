// SPDX-License-Identifier: MIT
#include "tests/support/processview.h"

#include <malloc.h>
#include <sys/syscall.h>

#include <filesystem>
#include <fstream>
#include <string>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Not all versions of the compiler have the header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace tests {

namespace {

// Numbers from <linux/net.h>.
constexpr unsigned long kSocketCallConnect = 3;
constexpr unsigned long kSocketCallRecv = 10;

/// The system call in which a thread sleeps.
struct SleepingCall {
    long mNumber = -1;  ///< -1 if it does not sleep
    unsigned long mFirstArgument = 0;
};

SleepingCall sleepingCall(pid_t thread) {
    // The file contains "running", or the number and the arguments of the call.
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
    SleepingCall call;
    if (!(file >> call.mNumber >> std::hex >> call.mFirstArgument)) {
        return SleepingCall();
    }
    return call;
}

/// On some machines one system call multiplexes all socket calls; its first argument selects the
/// call.
bool sleepsInSocketCall(pid_t thread, long number, unsigned long kind) {
    const SleepingCall call = sleepingCall(thread);
#ifdef SYS_socketcall
    if (call.mNumber == SYS_socketcall) {
        return call.mFirstArgument == kind;
    }
#endif
    (void)kind;
    return call.mNumber == number;
}

}  // namespace

std::set<pid_t> threadIds() {
    std::set<pid_t> ids;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        ids.insert(std::stoi(entry.path().filename()));
    }
    return ids;
}

std::size_t heapInUse() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

bool sleepsForATime(pid_t thread) {
    const long call = sleepingCall(thread).mNumber;
#ifdef SYS_clock_nanosleep_time64
    if (call == SYS_clock_nanosleep_time64) {
        return true;
    }
#endif
    return call == SYS_clock_nanosleep;
}

bool sleepsInFutex(pid_t thread) {
    const long call = sleepingCall(thread).mNumber;
#ifdef SYS_futex_time64
    if (call == SYS_futex_time64) {
        return true;
    }
#endif
    return call == SYS_futex;
}

bool sleepsInConnect(pid_t thread) {
    return sleepsInSocketCall(thread, SYS_connect, kSocketCallConnect);
}

bool sleepsInReceive(pid_t thread) {
    return sleepsInSocketCall(thread, SYS_recvfrom, kSocketCallRecv);
}

bool sleepsInWrite(pid_t thread) {
    return sleepingCall(thread).mNumber == SYS_write;
}

}  // namespace tests
