// SPDX-License-Identifier: MIT
#include "base/process/launcher.h"

#include <pthread.h>
#include <sched.h>
#include <sys/wait.h>

#include <cerrno>
#include <memory>

#include "base/cancelguard.h"
#include "base/process/interruptsignals.h"

namespace base {

namespace {

/// Blocks all signals of the calling thread for a scope, so that a child that is started in it runs
/// none of the application's handlers.
class SignalsBlocked {
public:
    SignalsBlocked() : mBefore() {
        sigset_t all;
        (void)sigfillset(&all);
        (void)pthread_sigmask(SIG_SETMASK, &all, &mBefore);
    }
    ~SignalsBlocked() { (void)pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

    const sigset_t& before() const { return mBefore; }

private:
    sigset_t mBefore;
};

struct ChildStart {
    const ChildSettings& mSettings;
    const ChildSignals& mSignals;
};

int runOnOwnStack(void* start) {
    const auto* const given = static_cast<const ChildStart*>(start);
    return becomeProgram(given->mSettings, given->mSignals);
}

pid_t startWithOwnMemory(const ChildSettings& settings) {
    const SignalsBlocked blocked;
    const ChildSignals signals = {blocked.before(), interruptsNotIgnored()};
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(becomeProgram(settings, signals));
    }
    return child;
}

/// The child runs on its own stack in the caller's memory. The calling thread waits until the child
/// has executed its program or has exited.
pid_t startInSharedMemory(ChildSettings settings) {
    constexpr std::size_t stackSize = std::size_t{32} * 1024;
    const auto stack = std::make_unique<char[]>(stackSize);
    int error = 0;
    settings.mpError = &error;
    pid_t child = -1;
    {
        const SignalsBlocked blocked;
        const ChildSignals signals = {blocked.before(), interruptsNotIgnored()};
        ChildStart start = {settings, signals};
        child = ::clone(runOnOwnStack, stack.get() + stackSize, CLONE_VM | CLONE_VFORK | SIGCHLD,
                        &start);
    }
    if (child < 0 || error == 0) {
        return child;
    }
    int status = 0;
    (void)waitForChild(child, status);
    errno = error;
    return -1;
}

}  // namespace

pid_t startChild(const ChildSettings& settings) {
    // A cancellation in the child would unwind the caller's frames, and a cancellation in the
    // caller could leak the child.
    const CancelGuard guard;
    return settings.mBirth == Birth::eSharedMemory ? startInSharedMemory(settings)
                                                   : startWithOwnMemory(settings);
}

std::vector<const char*> pointersTo(const std::vector<std::string>& arguments) {
    std::vector<const char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    pointers.push_back(nullptr);
    return pointers;
}

pid_t waitForChild(pid_t child, int& status) {
    const CancelGuard guard;
    pid_t waited = -1;
    do {
        waited = ::waitpid(child, &status, 0);
    } while (waited < 0 && errno == EINTR);
    return waited;
}

}  // namespace base
