// SPDX-License-Identifier: MIT
//
// The monotonic clock, which changes of the date do not affect.
#ifndef KESTROVA_BASE_MONOTONICTIME_H
#define KESTROVA_BASE_MONOTONICTIME_H

#include <ctime>

namespace base {

/// Returns the current time.
timespec monotonicNow();
/// Returns the time `milliseconds` after `time`.
timespec timeAfter(timespec time, unsigned long milliseconds);
/// Returns whether the first time is before the second.
bool isEarlier(const timespec& one, const timespec& other);
/// Sleeps until a time, retrying on EINTR. A cancellation point.
void sleepUntil(const timespec& time);

/// Calls `attempt` every 10 ms until it returns true, for at most `milliseconds`, but at least
/// once. Returns false if no attempt has succeeded, or if `isFinal` returns true because no later
/// attempt can. A cancellation point between the attempts.
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
