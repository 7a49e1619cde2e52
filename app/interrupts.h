// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_INTERRUPTS_H
#define KESTROVA_APP_INTERRUPTS_H

#include <csignal>

namespace app {

/// Turns Ctrl-C into something to wait for.
///
/// The terminal sends it to every process of the command, so also to a tool that is in the middle
/// of writing a file system. Blocked here, it is blocked in the library's workers and in the tools
/// too, which inherit that: a format is never cut off half-way. Make it before any other thread.
class Interrupts {
public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Readable when Ctrl-C is pending.
    int descriptor() const { return mDescriptor; }
    /// Takes what is pending; true when there was something.
    bool take() const;
    /// Waits; true as soon as Ctrl-C arrives, false when the time has passed.
    bool wait(int milliseconds) const;

private:
    int mDescriptor;
};

/// Children that are started in its scope are ended by Ctrl-C, as other commands of a shell are. In
/// this process one that comes within the scope is lost.
class InterruptibleChildren {
public:
    InterruptibleChildren();
    ~InterruptibleChildren();
    InterruptibleChildren(const InterruptibleChildren&) = delete;
    InterruptibleChildren& operator=(const InterruptibleChildren&) = delete;

private:
    struct sigaction mAction;
    sigset_t mMask;
};

}  // namespace app

#endif
