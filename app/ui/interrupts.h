// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_INTERRUPTS_H
#define KESTROVA_APP_UI_INTERRUPTS_H

#include <csignal>

namespace app {

/// Turns Ctrl-C (SIGINT), SIGTERM and SIGHUP into something to wait for.
///
/// The terminal sends SIGINT and SIGHUP to every process of the command, so also to a tool that is
/// in the middle of writing a file system. Blocked here, they are blocked in the library's workers
/// and in the tools too, which inherit that: a format is never cut off half-way. Make it before any
/// other thread. A signal that the caller ignores, as nohup does with SIGHUP, stays ignored.
class Interrupts {
public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Readable when a signal is pending.
    int descriptor() const { return mDescriptor; }
    /// Takes what is pending; true when there was something.
    bool take() const;
    /// Waits; true as soon as a signal arrives, false when the time has passed.
    bool wait(int milliseconds) const;
    /// SIGTERM or SIGHUP, once one has been taken: the process is to end; 0 before.
    int ending() const { return mEnding; }

private:
    int mDescriptor;
    mutable int mEnding = 0;
};

/// Children that are started in its scope can be ended by the signals of Interrupts, as those of
/// other programs. A signal that comes to this process within the scope is pending afterwards.
class InterruptibleChildren {
public:
    InterruptibleChildren();
    ~InterruptibleChildren();
    InterruptibleChildren(const InterruptibleChildren&) = delete;
    InterruptibleChildren& operator=(const InterruptibleChildren&) = delete;

private:
    static constexpr int kSignals = 3;

    struct sigaction mActions[kSignals];
    sigset_t mMask;
};

}  // namespace app

#endif
