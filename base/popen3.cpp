// SPDX-License-Identifier: MIT
#include "base/popen3.h"

#include <spawn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "base/shell.h"

namespace {

constexpr int kStandardStreams = 3;
constexpr int kCannotExecute = 127;

/// The pipes asked for; index 0 to 2 is the child's descriptor.
struct Pipes {
    Pipes(int* in, int* out, int* err) : mStore{in, out, err} {}

    base::Pipe mPipe[kStandardStreams];
    int* mStore[kStandardStreams];

    bool open() {
        for (int i = 0; i < kStandardStreams; ++i) {
            if (mStore[i] != nullptr && !mPipe[i].open()) {
                return false;
            }
        }
        return true;
    }
    base::Descriptor& childEnd(int i) { return i == 0 ? mPipe[i].mRead : mPipe[i].mWrite; }
    base::Descriptor& callerEnd(int i) { return i == 0 ? mPipe[i].mWrite : mPipe[i].mRead; }

    void store() {
        for (int i = 0; i < kStandardStreams; ++i) {
            if (mStore[i] != nullptr) {
                *mStore[i] = callerEnd(i).release();
            }
        }
    }
};

/// Length of the name in "NAME=VALUE", the equals sign included.
std::size_t nameLength(const char* entry) {
    const char* const equals = std::strchr(entry, '=');
    return equals != nullptr ? static_cast<std::size_t>(equals - entry) + 1 : std::strlen(entry);
}

void addOrReplace(std::vector<char*>& environment, const char* entry) {
    char* const added = const_cast<char*>(entry);
    const std::size_t length = nameLength(entry);
    for (char*& present : environment) {
        if (std::strncmp(present, entry, length) == 0) {
            present = added;
            return;
        }
    }
    environment.push_back(added);
}

std::vector<char*> environmentOf(char** envp, const char** extra) {
    std::vector<char*> environment;
    for (char** entry = envp != nullptr ? envp : environ; entry != nullptr && *entry != nullptr;
         ++entry) {
        environment.push_back(*entry);
    }
    for (; extra != nullptr && *extra != nullptr; ++extra) {
        addOrReplace(environment, *extra);
    }
    environment.push_back(nullptr);
    return environment;
}

/// What posix_spawn is told beside the program.
struct SpawnSettings {
    SpawnSettings() {
        mError = posix_spawn_file_actions_init(&mActions);
        if (mError == 0) {
            mError = posix_spawnattr_init(&mAttributes);
            if (mError != 0) {
                (void)posix_spawn_file_actions_destroy(&mActions);
            }
        }
        mMade = mError == 0;
    }
    ~SpawnSettings() {
        if (mMade) {
            (void)posix_spawnattr_destroy(&mAttributes);
            (void)posix_spawn_file_actions_destroy(&mActions);
        }
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawn_file_actions_t mActions;
    posix_spawnattr_t mAttributes;
    int mError;  ///< of the first call that failed
    bool mMade;
};

/// Adds the C library's own two signals, which posix_spawn would leave ignored in the child, unless
/// they are ignored here, too. No function of the C library takes their numbers.
void addInternalSignals(sigset_t& set) {
    constexpr unsigned bits = sizeof(unsigned long) * CHAR_BIT;
    constexpr std::size_t kernelMaskBytes = 8;
    for (const unsigned number : {32U, 33U}) {
        unsigned long action[8] = {};  // the kernel's, which begins with the handler
        if (::syscall(SYS_rt_sigaction, number, nullptr, action, kernelMaskBytes) == 0 &&
            action[0] != reinterpret_cast<unsigned long>(SIG_IGN)) {
            auto* const words = reinterpret_cast<unsigned long*>(&set);
            words[(number - 1) / bits] |= 1UL << (number - 1) % bits;
        }
    }
}

/// Without the caller's page tables being copied. -1 and errno on failure.
pid_t spawnDirectly(Pipes& pipes, sigset_t defaults, char* const* argv, char* const* environment) {
    addInternalSignals(defaults);
    SpawnSettings settings;
    int error = settings.mError;
    for (int i = 0; i < kStandardStreams && error == 0; ++i) {
        if (pipes.childEnd(i).valid()) {
            error =
                posix_spawn_file_actions_adddup2(&settings.mActions, pipes.childEnd(i).get(), i);
        }
    }
    pid_t child = -1;
    if (error == 0) {
        (void)posix_spawnattr_setsigdefault(&settings.mAttributes, &defaults);
        (void)posix_spawnattr_setflags(&settings.mAttributes, POSIX_SPAWN_SETSIGDEF);
        error = posix_spawn(&child, argv[0], &settings.mActions, &settings.mAttributes, argv,
                            environment);
    }
    if (error != 0) {
        errno = error;
        return -1;
    }
    return child;
}

/// With a hook, which needs a process of its own to run in.
pid_t forkWithHook(Pipes& pipes, const sigset_t& defaults, char* const* argv,
                   char* const* environment, void (*childHook)(void*), void* hookArgument) {
    const pid_t child = ::fork();
    if (child != 0) {
        return child;
    }
    for (int i = 0; i < kStandardStreams; ++i) {
        if (pipes.childEnd(i).valid()) {
            (void)::dup2(pipes.childEnd(i).get(), i);
        }
    }
    for (const int number : {SIGINT, SIGQUIT}) {
        if (sigismember(&defaults, number) == 1) {
            (void)::signal(number, SIG_DFL);
        }
    }
    childHook(hookArgument);
    (void)::execve(argv[0], argv, environment);
    ::_exit(kCannotExecute);
}

}  // namespace

int kestrova_popen3_adv(int* in, int* out, int* err, const char** argv, char** envp,
                        const char** extra, void (*childHook)(void*), void* hookArgument) {
    if (argv == nullptr || argv[0] == nullptr) {
        errno = EINVAL;
        return -1;
    }
    Pipes pipes(in, out, err);
    if (!pipes.open()) {
        return -1;
    }
    const std::vector<char*> environment = environmentOf(envp, extra);
    char* const* const arguments = const_cast<char* const*>(argv);
    const base::ShellSignals signals;
    const pid_t child =
        childHook == nullptr
            ? spawnDirectly(pipes, signals.borrowed(), arguments, environment.data())
            : forkWithHook(pipes, signals.borrowed(), arguments, environment.data(), childHook,
                           hookArgument);
    if (child > 0) {
        pipes.store();
    }
    return child;
}
