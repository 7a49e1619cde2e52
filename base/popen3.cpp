// SPDX-License-Identifier: MIT
#include "base/popen3.h"

#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "base/descriptor.h"

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

/// Without the caller's page tables being copied. -1 and errno on failure.
pid_t spawnDirectly(Pipes& pipes, char* const* argv, char* const* environment) {
    posix_spawn_file_actions_t actions;
    int error = posix_spawn_file_actions_init(&actions);
    if (error != 0) {
        errno = error;
        return -1;
    }
    for (int i = 0; i < kStandardStreams && error == 0; ++i) {
        if (pipes.childEnd(i).valid()) {
            error = posix_spawn_file_actions_adddup2(&actions, pipes.childEnd(i).get(), i);
        }
    }
    pid_t child = -1;
    if (error == 0) {
        error = posix_spawn(&child, argv[0], &actions, nullptr, argv, environment);
    }
    (void)posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        errno = error;
        return -1;
    }
    return child;
}

/// With a hook, which needs a process of its own to run in.
pid_t forkWithHook(Pipes& pipes, char* const* argv, char* const* environment,
                   void (*childHook)(void*), void* hookArgument) {
    const pid_t child = ::fork();
    if (child != 0) {
        return child;
    }
    for (int i = 0; i < kStandardStreams; ++i) {
        if (pipes.childEnd(i).valid()) {
            (void)::dup2(pipes.childEnd(i).get(), i);
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
    const pid_t child = childHook == nullptr ? spawnDirectly(pipes, arguments, environment.data())
                                             : forkWithHook(pipes, arguments, environment.data(),
                                                            childHook, hookArgument);
    if (child > 0) {
        pipes.store();
    }
    return child;
}
