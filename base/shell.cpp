// SPDX-License-Identifier: MIT
#include "base/shell.h"

#include <unistd.h>

#include <cstdlib>

#include "base/childprocess.h"

namespace base {

namespace {

std::mutex lock;
int running = 0;
sigset_t notIgnoredBefore;

bool ignored(int number) {
    struct sigaction action = {};
    return ::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Counts the commands that run; the first one notes what system() is going to change.
class Running {
public:
    Running() {
        const std::lock_guard<std::mutex> guard(lock);
        if (running++ > 0) {
            return;
        }
        (void)sigemptyset(&notIgnoredBefore);
        for (const int number : {SIGINT, SIGQUIT}) {
            if (!ignored(number)) {
                (void)sigaddset(&notIgnoredBefore, number);
            }
        }
    }
    ~Running() {
        const std::lock_guard<std::mutex> guard(lock);
        --running;
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
};

}  // namespace

ShellSignals::ShellSignals() : mLock(lock) {
    if (running > 0) {
        mBorrowed = notIgnoredBefore;
    } else {
        (void)sigemptyset(&mBorrowed);
    }
}

int runShell(const std::string& command) {
    std::string redirections;
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (!passedOn(descriptor)) {
            redirections += std::to_string(descriptor) + "<>/dev/null ";
        }
    }
    const Running counted;
    return std::system((redirections + command).c_str());
}

}  // namespace base
