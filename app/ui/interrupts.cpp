// SPDX-License-Identifier: MIT
#include "app/ui/interrupts.h"

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace app {

namespace {

constexpr int kNumbers[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t caught[sizeof(kNumbers) / sizeof(kNumbers[0])];

bool isIgnored(int number) {
    struct sigaction action = {};
    return ::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Returns the signals that are not ignored: a signalfd would receive an ignored signal if it is
/// blocked.
sigset_t heededSignals() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    for (const int number : kNumbers) {
        if (!isIgnored(number)) {
            (void)sigaddset(&signals, number);
        }
    }
    return signals;
}

void catchSignal(int number) {
    for (std::size_t i = 0; i < sizeof(kNumbers) / sizeof(kNumbers[0]); ++i) {
        caught[i] = kNumbers[i] == number ? 1 : caught[i];
    }
}

}  // namespace

Interrupts::Interrupts() {
    const sigset_t signals = heededSignals();
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    mDescriptor = ::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
}

// Leaves the signals blocked, because a worker may still run while the system stops.
Interrupts::~Interrupts() {
    (void)::close(mDescriptor);
}

bool Interrupts::take() const {
    signalfd_siginfo signal;
    bool taken = false;
    while (::read(mDescriptor, &signal, sizeof(signal)) == sizeof(signal)) {
        taken = true;
        const int number = static_cast<int>(signal.ssi_signo);
        mEnding = number == SIGINT || mEnding != 0 ? mEnding : number;
    }
    return taken;
}

bool Interrupts::wait(int milliseconds) const {
    pollfd pending = {mDescriptor, POLLIN, 0};
    return ::poll(&pending, 1, milliseconds) > 0 && take();
}

InterruptibleChildren::InterruptibleChildren() : mActions(), mMask() {
    const sigset_t signals = heededSignals();
    for (int i = 0; i < kSignals; ++i) {
        if (sigismember(&signals, kNumbers[i]) == 1) {
            struct sigaction action = {};
            action.sa_handler = catchSignal;
            caught[i] = 0;
            (void)::sigaction(kNumbers[i], &action, &mActions[i]);
        } else {
            mActions[i].sa_handler = SIG_IGN;
        }
    }
    (void)pthread_sigmask(SIG_UNBLOCK, &signals, &mMask);
}

InterruptibleChildren::~InterruptibleChildren() {
    (void)pthread_sigmask(SIG_SETMASK, &mMask, nullptr);
    for (int i = 0; i < kSignals; ++i) {
        (void)::sigaction(kNumbers[i], &mActions[i], nullptr);
        if (caught[i] != 0) {
            caught[i] = 0;
            (void)::raise(kNumbers[i]);
        }
    }
}

}  // namespace app
