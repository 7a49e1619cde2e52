// SPDX-License-Identifier: MIT
#include "tests/torture/run.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "tests/torture/insiderun.h"

namespace torture {

namespace {

constexpr int kRunMilliseconds = 10000;
constexpr int kGuardMilliseconds = 20000;
constexpr int kOrphanMilliseconds = 3000;

void check(bool held, const char* what) {
    if (!held) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    }
}

/// Waits for a child. Returns false if it has not exited in time.
bool awaitEnd(pid_t child, int milliseconds, int& status) {
    const int handle = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    pollfd entry = {handle, POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&entry, 1, milliseconds);
    } while (ready < 0 && errno == EINTR);
    (void)::close(handle);
    return ready == 1 && ::waitpid(child, &status, 0) == child;
}

/// Returns the system calls in which the children's threads wait.
std::string waitingCalls() {
    std::istringstream children(tests::readFile("/proc/thread-self/children"));
    std::string text;
    for (std::string child; children >> child;) {
        for (int thread = std::stoi(child); thread < std::stoi(child) + 8; ++thread) {
            const std::string task = "/proc/" + child + "/task/" + std::to_string(thread);
            const std::string call = tests::readFile(task + "/syscall");
            if (!call.empty()) {
                text += " " + std::to_string(thread - std::stoi(child)) + ":" +
                        call.substr(0, call.find(' ')) + "(" + tests::readFile(task + "/wchan") +
                        ")";
            }
        }
    }
    return text;
}

/// Waits for processes that the run has left behind: this process is now their parent.
void awaitOrphans() {
    for (int waited = 0;; ++waited) {
        const pid_t ended = ::waitpid(-1, nullptr, WNOHANG);
        if (ended < 0) {
            return;
        }
        if (ended == 0) {
            if (waited >= kOrphanMilliseconds) {
                addFinding("a process is left");
                return;
            }
            (void)::poll(nullptr, 0, 1);
        }
    }
}

/// Runs as the first process of the run's namespace: everything that the run started ends with it.
[[noreturn]] void guard(const Scenario& scenario, World& world) {
    int status = 0;
    try {
        world.enterRun();
        const pid_t child = ::fork();
        if (child == 0) {
            insideRun(scenario, world);
        }
        if (!awaitEnd(child, kRunMilliseconds, status)) {
            addFinding("hangs:" + waitingCalls());
            ::_exit(0);
        }
    } catch (const std::exception& problem) {
        addFinding(std::string("no surroundings: ") + problem.what());
        ::_exit(0);
    }
    if (WIFSIGNALED(status)) {
        addFinding(std::string("crashes: ") + ::strsignal(WTERMSIG(status)));
    } else if (WEXITSTATUS(status) != 0 || shared().mDone == 0) {
        addFinding("exits with " + std::to_string(WEXITSTATUS(status)));
    }
    awaitOrphans();
    ::_exit(0);
}

int memoryFile(const char* name, int number) {
    const int made = ::memfd_create(name, MFD_CLOEXEC);
    const int file = ::fcntl(made, F_DUPFD_CLOEXEC, number);
    (void)::close(made);
    (void)::fcntl(file, F_SETFL, O_APPEND);
    return file;
}

std::string readMemory(int file) {
    struct stat status = {};
    (void)::fstat(file, &status);
    std::string text(static_cast<std::size_t>(std::min<off_t>(status.st_size, 1 << 20)), '\0');
    const ssize_t count = ::pread(file, text.data(), text.size(), 0);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

/// Returns the messages of a crash.
std::string crashText(const std::string& errors) {
    std::istringstream lines(errors);
    std::string text;
    for (std::string line; std::getline(lines, line) && text.size() < 900;) {
        if (line.find("Sanitizer") != std::string::npos ||
            line.find("runtime error") != std::string::npos ||
            line.find("terminate") != std::string::npos || line.find("FATAL") == 0 ||
            line.find("    #") == 0 || line.find("what()") != std::string::npos ||
            line.find("libkestrova") != std::string::npos) {
            text += "\n      " + line;
        }
    }
    return text;
}

}  // namespace

Runner::Runner(World& world) : mWorld(world) {
    mOwnProcesses = ::open("/proc/self/ns/pid", O_RDONLY | O_CLOEXEC);
    check(mOwnProcesses >= 0, "/proc/self/ns/pid");
    mOutput = memoryFile("output", kOutputNumber);
    mErrors = memoryFile("errors", kErrorsNumber);
    (void)shared();
    warmUp();
}

/// Restores the tool that a run has hidden.
void Runner::restoreTool() {
    (void)::unlink("/stub/fault");
    const std::string hidden = shared().mHiddenTool;
    if (!hidden.empty() && ::access("/stub/hidden", F_OK) == 0) {
        check(::rename("/stub/hidden", hidden.c_str()) == 0, hidden.c_str());
    }
}

Outcome Runner::run(const Scenario& scenario, const Plan& plan) {
    resetShared(plan);
    if (plan.mKind == Kind::eTool &&
        toolFaults()[static_cast<std::size_t>(plan.mFailure)].mAct != ToolFault::eInStub) {
        std::string tool = mToolPaths[scenario.mName].at(static_cast<std::size_t>(plan.mNth - 1));
        if (tool.find('/') == std::string::npos) {
            tool = "/bin/" + tool;
        }
        (void)std::snprintf(shared().mHiddenTool, kToolPath, "%s", tool.c_str());
    }
    check(::ftruncate(mOutput, 0) == 0 && ::ftruncate(mErrors, 0) == 0, "output");
    check(::setns(mOwnProcesses, CLONE_NEWPID) == 0 && ::unshare(CLONE_NEWPID) == 0, "processes");
    (void)std::fflush(nullptr);
    const pid_t guardian = ::fork();
    check(guardian >= 0, "fork");
    if (guardian == 0) {
        guard(scenario, mWorld);
    }
    int status = 0;
    if (!awaitEnd(guardian, kGuardMilliseconds, status)) {
        addFinding("the guardian hangs");
        (void)::kill(guardian, SIGKILL);
        (void)::waitpid(guardian, &status, 0);
    } else if (status != 0) {
        addFinding("the guardian ended with " + std::to_string(status));
    }
    restoreTool();

    Outcome outcome;
    outcome.mFired = shared().mFired > 0;
    outcome.mFiredIn = shared().mFiredIn;
    const std::string errors = readMemory(mErrors);
    outcome.mOutput = readMemory(mOutput) + errors;
    std::istringstream lines(
        std::string(shared().mText, static_cast<std::size_t>(shared().mTextLength.load())));
    for (std::string line; std::getline(lines, line);) {
        const bool ended = line.rfind("crashes", 0) == 0 || line.rfind("exits", 0) == 0;
        outcome.mFindings.push_back(line + (ended ? crashText(errors) : ""));
    }
    return outcome;
}

std::vector<Plan> Runner::plansFor(const Scenario& scenario, Outcome& outcome) {
    outcome = run(scenario, Plan());
    const Shared& counted = shared();
    std::vector<Plan> plans;
    int calls[kMostActors] = {};
    const int events = std::min(counted.mEvents.load(), kMostEvents);
    for (int i = 0; i < events; ++i) {
        const Event& event = counted.mEvent[i];
        const auto function = static_cast<Function>(event.mFunction);
        const int nth = ++calls[event.mActor];
        for (const int failure : failuresOf(function)) {
            plans.push_back({Kind::eCall, event.mActor, nth, failure, false});
            if (failure > 0 && failure != EINTR && failure != EAGAIN) {
                plans.push_back({Kind::eCall, event.mActor, nth, failure, true});
            }
        }
    }
    for (int actor = 0; actor < kMostActors; ++actor) {
        for (int nth = 1; nth <= counted.mAllocations[actor]; ++nth) {
            plans.push_back({Kind::eAllocation, actor, nth, 0, false});
            plans.push_back({Kind::eAllocation, actor, nth, 0, true});
        }
    }
    for (const int actor : scenario.mCancelled) {
        for (int nth = 1; nth <= counted.mPoints[actor]; ++nth) {
            plans.push_back({Kind::eCancel, actor, nth, 0, false});
        }
    }
    std::vector<std::string>& paths = mToolPaths[scenario.mName];
    paths.clear();
    for (int i = 0; i < std::min(counted.mToolRuns.load(), kMostToolRuns); ++i) {
        const std::string path = counted.mToolPath[i];
        const bool first = std::find(paths.begin(), paths.end(), path) == paths.end();
        paths.push_back(path);
        for (std::size_t fault = 0; fault < toolFaults().size(); ++fault) {
            if (first || toolFaults()[fault].mAct == ToolFault::eInStub) {
                plans.push_back({Kind::eTool, 0, i + 1, static_cast<int>(fault), false});
            }
        }
    }
    return plans;
}

}  // namespace torture
