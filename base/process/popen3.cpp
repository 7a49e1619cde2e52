// SPDX-License-Identifier: MIT
#include "base/process/popen3.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "base/io/descriptor.h"
#include "base/process/launcher.h"

namespace {

constexpr int kStandardStreams = 3;

/// The requested pipes; the index is the child's descriptor, 0 to 2.
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

/// Length of the name in "NAME=VALUE", including the equals sign.
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
    base::ChildSettings settings;
    settings.mArguments = argv;
    settings.mEnvironment = environment.data();
    for (int i = 0; i < kStandardStreams; ++i) {
        settings.mStreams[i] = pipes.childEnd(i).get();
    }
    settings.mBirth = childHook == nullptr ? base::Birth::eSharedMemory : base::Birth::eOwnMemory;
    settings.mHook = childHook;
    settings.mHookArgument = hookArgument;
    const pid_t child = base::startChild(settings);
    if (child > 0) {
        pipes.store();
    }
    return child;
}
