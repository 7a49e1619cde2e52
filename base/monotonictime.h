// SPDX-License-Identifier: MIT
//
// Times of the monotonic clock, which no change of the date moves.
#ifndef KESTROVA_BASE_MONOTONICTIME_H
#define KESTROVA_BASE_MONOTONICTIME_H

#include <ctime>

namespace base {

/// Returns the time now.
timespec monotonicNow();
/// Returns the time so many milliseconds after another.
timespec timeAfter(timespec time, unsigned long milliseconds);
/// Returns true when one time is before another.
bool isEarlier(const timespec& one, const timespec& other);
/// Sleeps until a time; signals do not end the sleep. A cancellation point.
void sleepUntil(const timespec& time);

/// Calls `attempt` every 10 ms until it returns true, for so many milliseconds at most, and at
/// least once. Returns false when no attempt has succeeded, or `isFinal` says that no later one
/// can. A cancellation point between the attempts.
template <class Attempt, class IsFinal>
bool retryUntil(unsigned milliseconds, Attempt attempt, IsFinal isFinal) {
    constexpr unsigned long interval = 10;  // milliseconds
    const timespec end = timeAfter(monotonicNow(), milliseconds);
    while (!attempt()) {
        const timespec start = monotonicNow();
        if (isFinal() || !isEarlier(start, end)) {
            return false;
        }
        const timespec next = timeAfter(start, interval);
        sleepUntil(isEarlier(next, end) ? next : end);
    }
    return true;
}

}  // namespace base

#endif
