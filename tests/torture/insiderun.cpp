// SPDX-License-Identifier: MIT
#include "tests/torture/insiderun.h"

#include <execinfo.h>
#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <new>

#include "System/drivemanager/partition.h"
#include "base/outputlevel.h"
#include "tests/support/descriptors.h"
#include "tests/support/processview.h"
#include "tests/torture/memory.h"

namespace torture {

namespace {

constexpr int kSettleMilliseconds = 3000;

using Dispositions = std::array<void (*)(int), NSIG>;

Dispositions dispositions() {
    Dispositions found = {};
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action = {};
        (void)::sigaction(number, nullptr, &action);
        found[static_cast<std::size_t>(number)] = action.sa_handler;
    }
    return found;
}

std::string blockedSignals() {
    sigset_t mask;
    (void)pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    std::string text;
    for (int number = 1; number < NSIG; ++number) {
        text += sigismember(&mask, number) == 1 ? std::to_string(number) + " " : "";
    }
    return text;
}

/// The thread that calls the library.
struct Caller {
    Case& mCase;
    bool mThrew = false;
    bool mReturned = false;
    bool mOtherException = false;
};

void checkThread(const std::string& blockedBefore) {
    int state = PTHREAD_CANCEL_ENABLE;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    if (state != PTHREAD_CANCEL_ENABLE) {
        addFinding("the caller cannot be cancelled any more");
    }
    if (blockedSignals() != blockedBefore) {
        addFinding("the signal mask is not as before");
    }
}

void* runCaller(void* argument) {
    auto& caller = *static_cast<Caller*>(argument);
    const std::string blocked = blockedSignals();
    try {
        const Inside inside(0);
        caller.mCase.act();
    } catch (const std::bad_alloc&) {
        caller.mThrew = true;
    } catch (const std::exception& other) {
        caller.mThrew = true;
        caller.mOtherException = true;
        addFinding(std::string("throws ") + other.what());
    }
    caller.mReturned = true;
    checkThread(blocked);
    return nullptr;
}

/// Retries a condition until it holds, within the time for everything to settle.
template <class Condition>
bool settles(Condition condition) {
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(kSettleMilliseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        (void)::usleep(100);
    }
    return true;
}

std::string readMemory(int file) {
    std::string text;
    char buffer[4096];
    off_t at = 0;
    ssize_t count = 0;
    while ((count = ::pread(file, buffer, sizeof(buffer), at)) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
        at += count;
    }
    return text;
}

std::string linkOf(int descriptor) {
    char target[128] = {};
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    (void)!::readlink(path.c_str(), target, sizeof(target) - 1);
    // Without a number, so that findings can be compared.
    const std::string text = target;
    return text.substr(0, text.find_first_of("[0123456789"));
}

/// Checks that no descriptor has been added, except those that are kept on purpose.
void checkDescriptors(const std::set<int>& before, int kept) {
    std::set<int> more;
    const auto differs = [&] {
        const std::set<int> now = tests::openDescriptors();
        more.clear();
        std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                            std::inserter(more, more.end()));
        return static_cast<int>(more.size());
    };
    if (settles([&] { return differs() <= kept; })) {
        return;
    }
    std::string text = "descriptors are left:";
    for (const int number : more) {
        text += " " + linkOf(number);
    }
    addFinding(text);
}

void checkChildren() {
    const pid_t child = ::waitpid(-1, nullptr, WNOHANG);
    if (child > 0) {
        addFinding("a child has not been waited for");
    } else if (child == 0) {
        addFinding("a child still runs");
    }
}

void* logSomething(void* /*argument*/) {
    sysPartition partition;
    (void)partition.unmount();
    return nullptr;
}

/// Checks that another thread can take the print lock and that its message appears.
void checkPrintLock() {
    const std::string before = readMemory(kOutputNumber);
    pthread_t thread = 0;
    (void)pthread_create(&thread, nullptr, logSomething, nullptr);
    (void)pthread_join(thread, nullptr);
    if (readMemory(kOutputNumber).find("File system is not mounted\n", before.size()) ==
        std::string::npos) {
        addFinding("the log is silent afterwards");
    }
}

/// Makes a tool misbehave as planned. `runsBefore` is the number of runs during the preparation.
void spoilTool(const Verdict& verdict, std::size_t runsBefore) {
    if (verdict.mPlan.mKind != Kind::eTool) {
        return;
    }
    const ToolFault& fault = verdict.toolFault();
    const std::string hidden = shared().mHiddenTool;
    if (hidden.empty()) {
        tests::writeFile("/stub/fault",
                         std::to_string(runsBefore + static_cast<std::size_t>(verdict.mPlan.mNth)) +
                             " " + fault.mName);
        return;
    }
    (void)::rename(hidden.c_str(), "/stub/hidden");
    if (fault.mAct == ToolFault::eNotExecutable) {
        tests::writeFile(hidden, "no program");
        (void)::chmod(hidden.c_str(), 0644);
    }
}

/// Restores the tool for the checks that follow.
void restoreTool() {
    (void)::unlink("/stub/fault");
    if (shared().mHiddenTool[0] != '\0') {
        (void)::rename("/stub/hidden", shared().mHiddenTool);
    }
}

/// Records which tools were run, and whether one of them misbehaved.
void noteTools(World& world, Verdict& verdict, std::size_t runsBefore) {
    std::vector<tests::ToolRun> runs = world.box().runs();
    runs.erase(runs.begin(),
               runs.begin() + static_cast<std::ptrdiff_t>(std::min(runsBefore, runs.size())));
    Shared& all = shared();
    const int count = std::min(static_cast<int>(runs.size()), kMostToolRuns);
    all.mToolRuns = count;
    for (int i = 0; i < count; ++i) {
        (void)std::snprintf(all.mToolPath[i], kToolPath, "%s",
                            runs[static_cast<std::size_t>(i)].mArguments.at(0).c_str());
    }
    if (verdict.mPlan.mKind != Kind::eTool) {
        return;
    }
    const auto nth = static_cast<std::size_t>(verdict.mPlan.mNth);
    verdict.mFired = verdict.toolFault().mAct != ToolFault::eInStub || runs.size() >= nth;
    all.mFired = verdict.mFired ? 1 : 0;
    if (shared().mHiddenTool[0] != '\0') {
        verdict.mDisturbedTool = shared().mHiddenTool;
    } else if (runs.size() >= nth) {
        verdict.mDisturbedTool = runs[nth - 1].mArguments.at(0);
    }
}

void checkTools(World& world) {
    for (const tests::ToolRun& run : world.box().runs()) {
        if (run.mRefused) {
            std::string line = "a tool was run in another way:";
            for (const std::string& argument : run.mArguments) {
                line += " " + argument;
            }
            addFinding(line);
        }
    }
}

/// Calls the operation and waits until every thread that it has started has exited.
void act(Case& tested, Verdict& verdict, const Dispositions& before) {
    const std::size_t threads = tests::threadIds().size();
    Caller caller = {tested};
    pthread_t thread = 0;
    void* result = nullptr;
    shared().mArmed = true;
    (void)pthread_create(&thread, nullptr, runCaller, &caller);
    (void)pthread_join(thread, &result);
    if (!settles([&] { return tests::threadIds().size() <= threads; })) {
        addFinding("a thread is left");
    }
    shared().mArmed = false;
    if (dispositions() != before) {
        addFinding("the disposition of a signal is not as before");
    }
    verdict.mThrew = caller.mThrew;
    verdict.mCancelled = !caller.mReturned;
    verdict.mFired = shared().mFired > 0;
    verdict.mFiredIn = static_cast<Function>(shared().mFiredIn.load());
    if (caller.mThrew && !caller.mOtherException && verdict.mPlan.mKind != Kind::eAllocation) {
        addFinding("throws bad_alloc although there is memory");
    }
}

void runCase(const Scenario& scenario, World& world) {
    const Dispositions signals = dispositions();
    const std::unique_ptr<Case> tested = scenario.mMake();
    tested->prepare(world);
    (void)std::fflush(nullptr);
    // Output of the preparation does not count.
    (void)!::ftruncate(kOutputNumber, 0);
    (void)!::ftruncate(kErrorsNumber, 0);
    const std::set<int> descriptors = tests::openDescriptors();
    Verdict verdict(world, shared().mPlan);
    const std::size_t runsBefore = world.box().runs().size();
    spoilTool(verdict, runsBefore);
    act(*tested, verdict, signals);
    tested->settle();
    (void)std::fflush(nullptr);
    verdict.mOutput = readMemory(kOutputNumber);
    verdict.mErrors = readMemory(kErrorsNumber);
    noteTools(world, verdict, runsBefore);
    restoreTool();
    checkChildren();
    checkDescriptors(descriptors, tested->descriptorsKept(verdict));
    checkTools(world);
    checkPrintLock();
    tested->check(verdict);
}

void reportCrash(int number) {
    void* frames[40];
    ::backtrace_symbols_fd(frames, ::backtrace(frames, 40), STDERR_FILENO);
    (void)std::signal(number, SIG_DFL);
    (void)std::raise(number);
}

}  // namespace

void warmUp() {
    // Loads the code for a cancellation and a backtrace.
    pthread_t thread = 0;
    const auto wait = [](void*) -> void* {
        for (;;) {
            (void)::pause();
        }
    };
    (void)pthread_create(&thread, nullptr, wait, nullptr);
    (void)pthread_cancel(thread);
    (void)pthread_join(thread, nullptr);
    void* frame = nullptr;
    (void)::backtrace(&frame, 1);
    // Loads the resolver's configuration.
    hostent entry = {};
    hostent* found = nullptr;
    char buffer[8096];
    int error = 0;
    (void)::gethostbyname_r("localhost", &entry, buffer, sizeof(buffer), &found, &error);
    // Static buffers, so that the streams do not allocate memory later.
    static char space[2][BUFSIZ];
    (void)std::setvbuf(stdout, space[0], _IOFBF, BUFSIZ);
    // Constructs objects that are constructed at their first use.
    (void)failuresOf(Function::read);
    (void)toolFaults();
}

void insideRun(const Scenario& scenario, World& world) {
    (void)::dup2(kOutputNumber, STDOUT_FILENO);
    (void)::dup2(kErrorsNumber, STDERR_FILENO);
#ifndef KESTROVA_TORTURE_ASAN
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
        (void)std::signal(number, reportCrash);
    }
#endif
    (void)std::signal(SIGABRT, reportCrash);
    kestrova_debug_output_level = 2;
    try {
        runCase(scenario, world);
    } catch (const std::exception& problem) {
        addFinding(std::string("the run's own part failed: ") + problem.what());
    }
    if (piecesHeld() > 0) {
        addFinding("memory is left:" + describePieces());
    }
    shared().mDone = 1;
    ::_exit(0);
}

}  // namespace torture
