// SPDX-License-Identifier: MIT
#include "app/interrupts.h"

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace app {

namespace {

sigset_t onlyInterrupts() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGINT);
    return signals;
}

}  // namespace

Interrupts::Interrupts() {
    const sigset_t signals = onlyInterrupts();
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    mDescriptor = ::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
}

// The signal stays blocked: a worker may still run while the system goes down.
Interrupts::~Interrupts() {
    (void)::close(mDescriptor);
}

bool Interrupts::take() const {
    signalfd_siginfo signal;
    bool taken = false;
    while (::read(mDescriptor, &signal, sizeof(signal)) == sizeof(signal)) {
        taken = true;
    }
    return taken;
}

InterruptibleChildren::InterruptibleChildren() : mAction(), mMask() {
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    (void)::sigaction(SIGINT, &nothing, &mAction);
    const sigset_t signals = onlyInterrupts();
    (void)pthread_sigmask(SIG_UNBLOCK, &signals, &mMask);
}

InterruptibleChildren::~InterruptibleChildren() {
    (void)pthread_sigmask(SIG_SETMASK, &mMask, nullptr);
    (void)::sigaction(SIGINT, &mAction, nullptr);
}

bool Interrupts::wait(int milliseconds) const {
    pollfd pending = {mDescriptor, POLLIN, 0};
    return ::poll(&pending, 1, milliseconds) > 0 && take();
}

}  // namespace app
