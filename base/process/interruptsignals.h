// SPDX-License-Identifier: MIT
//
// SIGINT and SIGQUIT, which system() makes the whole process ignore while its command runs. A child
// that another thread starts meanwhile must not inherit that: kestrova_popen_fout() sends its child
// SIGINT and waits for it. There is no lock, so that starts never wait for each other.
#ifndef KESTROVA_BASE_PROCESS_INTERRUPTSIGNALS_H
#define KESTROVA_BASE_PROCESS_INTERRUPTSIGNALS_H

#include <csignal>

namespace base {

/// The bit of SIGINT or SIGQUIT in a result of interruptsNotIgnored(); 0 for another signal.
constexpr unsigned interruptBit(int number) {
    return number == SIGINT ? 1U : number == SIGQUIT ? 2U : 0U;
}

/// Returns the bits of SIGINT and SIGQUIT for those that the application does not ignore,
/// regardless of system(). Any thread may call it; it does not block.
unsigned interruptsNotIgnored();

/// Counts a running shell command, during which system() may have the signals ignored.
class InterruptsBorrowed {
public:
    InterruptsBorrowed();
    ~InterruptsBorrowed();
    InterruptsBorrowed(const InterruptsBorrowed&) = delete;
    InterruptsBorrowed& operator=(const InterruptsBorrowed&) = delete;
};

}  // namespace base

#endif
