// SPDX-License-Identifier: MIT
#include "base/monotonictime.h"

#include <cerrno>

namespace base {

namespace {

constexpr long kNanosecondsPerMillisecond = 1000000;
constexpr long kNanosecondsPerSecond = 1000 * kNanosecondsPerMillisecond;

}  // namespace

timespec monotonicNow() {
    timespec time = {};
    (void)::clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

timespec timeAfter(timespec time, unsigned long milliseconds) {
    time.tv_sec += static_cast<time_t>(milliseconds / 1000);
    time.tv_nsec += static_cast<long>(milliseconds % 1000) * kNanosecondsPerMillisecond;
    if (time.tv_nsec >= kNanosecondsPerSecond) {
        ++time.tv_sec;
        time.tv_nsec -= kNanosecondsPerSecond;
    }
    return time;
}

bool isEarlier(const timespec& one, const timespec& other) {
    return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
}

void sleepUntil(const timespec& time) {
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
    }
}

}  // namespace base
