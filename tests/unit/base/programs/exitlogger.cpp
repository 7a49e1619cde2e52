// SPDX-License-Identifier: MIT
// Logs while the process exits: a detached worker without a pause, and the destructors of the first
// and of the last global object. The process ends by "exit" or by "return" from main.
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <future>

#include "base/log/log.h"

namespace {

struct LogsWhenDestroyed {
    explicit LogsWhenDestroyed(const char* name) : mName(name) {}
    ~LogsWhenDestroyed() {
        base::logMessageAt("exit", 1, 1, "%s goes\n", mName);
        base::reportFailedAssertion("exit", 2, mName);
        const base::PrintAccess access;
        *pCoutKestrovaOstream << "stream of " << mName << "\n";
    }
    LogsWhenDestroyed(const LogsWhenDestroyed&) = delete;
    LogsWhenDestroyed& operator=(const LogsWhenDestroyed&) = delete;
    const char* mName;
};

// Constructed before everything else in the program and the library, so destroyed last.
__attribute__((init_priority(101))) LogsWhenDestroyed first("first");
LogsWhenDestroyed last("last");

void* logForever(void* started) {
    base::logMessage(1, "worker\n");
    static_cast<std::promise<void>*>(started)->set_value();
    for (;;) {
        base::logMessageAt("worker", 1, 1, "still here\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    // Never freed, because the worker may outlive main().
    auto* const started = new std::promise<void>;
    pthread_t worker{};
    if (argc != 2 || pthread_create(&worker, nullptr, logForever, started) != 0) {
        return 2;
    }
    (void)pthread_detach(worker);
    started->get_future().wait();
    if (std::strcmp(argv[1], "exit") == 0) {
        std::exit(0);
    }
    return 0;
}
