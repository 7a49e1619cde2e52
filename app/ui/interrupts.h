// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_INTERRUPTS_H
#define KESTROVA_APP_UI_INTERRUPTS_H

#include <csignal>

namespace app {

/// Receives Ctrl-C (SIGINT), SIGTERM and SIGHUP through a descriptor.
///
/// The terminal sends SIGINT and SIGHUP to every process of the command, including a tool that is
/// writing a file system. These signals are blocked, and the library's workers and the tools
/// inherit that, so that a format is never interrupted. Create the object before any other thread.
/// A signal that the caller ignores, as nohup does with SIGHUP, stays ignored.
class Interrupts {
public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Readable while a signal is pending.
    int descriptor() const { return mDescriptor; }
    /// Consumes the pending signals. Returns whether there were any.
    bool take() const;
    /// Waits. Returns true as soon as a signal arrives, and false after the time.
    bool wait(int milliseconds) const;
    /// Returns SIGTERM or SIGHUP after one has been consumed, which means that the process must
    /// exit; otherwise 0.
    int ending() const { return mEnding; }

private:
    int mDescriptor;
    mutable int mEnding = 0;
};

/// Children that are started in this scope can be interrupted by the signals of Interrupts, as
/// usual. A signal to this process during the scope is pending afterwards.
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
