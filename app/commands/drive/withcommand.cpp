// SPDX-License-Identifier: MIT
//
// The command that starts the drive, runs a program, and always stops the drive.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/drive/drivedescription.h"
#include "app/commands/drive/drivework.h"
#include "app/session.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

constexpr int kNotFound = 127;
constexpr int kNotExecutable = 126;
/// Time that a program has after SIGTERM or SIGHUP, before it is killed.
constexpr int kGraceMilliseconds = 20000;

/// The terminal, if this process is in its foreground. The program gets the terminal while it runs.
class Foreground {
public:
    Foreground() : mTerminal(::open("/dev/tty", O_RDWR | O_CLOEXEC)) {
        mOurs = mTerminal >= 0 && ::tcgetpgrp(mTerminal) == ::getpgrp();
    }
    ~Foreground() {
        take();
        if (mTerminal >= 0) {
            (void)::close(mTerminal);
        }
    }
    Foreground(const Foreground&) = delete;
    Foreground& operator=(const Foreground&) = delete;

    void give(pid_t group) const { set(group); }
    void take() const { set(::getpgrp()); }

private:
    void set(pid_t group) const {
        if (!mOurs) {
            return;
        }
        // tcsetpgrp() from the background raises SIGTTOU, which stops a process that does not block
        // it.
        sigset_t signals;
        sigset_t before;
        (void)sigemptyset(&signals);
        (void)sigaddset(&signals, SIGTTOU);
        (void)pthread_sigmask(SIG_BLOCK, &signals, &before);
        (void)::tcsetpgrp(mTerminal, group);
        (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }

    int mTerminal;
    bool mOurs;
};

/// A program in its own process group.
class Program {
public:
    Program(Session& session, const Words& words, const char* directory);

    /// Waits for the program, and forwards signals to it. Returns its wait status, or -1.
    int wait();

    pid_t pid() const { return mPid; }
    /// errno of a failed execution, or 0.
    int error() const { return mError; }

private:
    [[noreturn]] void execute(char* const* arguments, const char* const* environment, int report,
                              int output) const;
    void pass(int number) const { (void)::kill(-mPid, number); }
    void stopTogether();
    bool takeSignals();

    Session& mSession;
    Foreground mForeground;
    pid_t mPid = -1;
    int mError = 0;
    int mGrace = -1;  // milliseconds until the program is killed; negative means never
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

std::vector<std::string> environmentWith(const char* directory) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, "KESTROVA_RECORDINGS=", 20) != 0) {
            environment.emplace_back(*entry);
        }
    }
    environment.push_back(std::string("KESTROVA_RECORDINGS=") + directory);
    return environment;
}

Program::Program(Session& session, const Words& words, const char* directory) : mSession(session) {
    // Create everything that the child needs before the fork.
    std::vector<std::string> arguments(words);
    std::vector<std::string> environment = environmentWith(directory);
    const std::vector<char*> argumentPointers = pointers(arguments);
    const std::vector<char*> environmentPointers = pointers(environment);
    int report[2] = {-1, -1};
    if (::pipe2(report, O_CLOEXEC) != 0) {
        mError = errno;
        return;
    }
    const int output = session.quiet() ? STDERR_FILENO : session.streams().output();
    mPid = ::fork();
    if (mPid == 0) {
        execute(argumentPointers.data(), environmentPointers.data(), report[1], output);
    }
    mError = mPid < 0 ? errno : 0;
    (void)::close(report[1]);
    if (mPid > 0) {
        (void)::setpgid(mPid, mPid);  // in parent and child, because either may run first
        mForeground.give(mPid);
        ssize_t count = 0;
        do {
            count = ::read(report[0], &mError, sizeof(mError));
        } while (count < 0 && errno == EINTR);
    }
    (void)::close(report[0]);
}

/// Runs in the child: only code that is safe between fork and exec.
void Program::execute(char* const* arguments, const char* const* environment, int report,
                      int output) const {
    (void)::setpgid(0, 0);
    mForeground.give(::getpid());
    // If kestrova is killed it cannot stop the drive, but the program that records must at least
    // exit.
    (void)::prctl(PR_SET_PDEATHSIG, SIGTERM);
    (void)::dup2(mSession.inputForChildren(), STDIN_FILENO);
    (void)::dup2(output, STDOUT_FILENO);
    (void)std::signal(SIGPIPE, SIG_DFL);
    sigset_t none;
    (void)sigemptyset(&none);
    (void)::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::execvpe(arguments[0], arguments, const_cast<char* const*>(environment));
    const int error = errno;
    const ssize_t written = ::write(report, &error, sizeof(error));
    (void)written;  // without a report the parent assumes that the program itself exited
    ::_exit(kNotFound);
}

/// Ctrl-Z has stopped the program: stops this process as well; both continue together.
void Program::stopTogether() {
    mForeground.take();
    (void)::kill(::getpid(), SIGSTOP);
    mForeground.give(mPid);
    pass(SIGCONT);
}

/// Returns true if a signal has arrived.
bool Program::takeSignals() {
    constexpr int interval = 50;  // milliseconds between two checks for the program's end
    const bool came = mSession.interrupts().wait(interval);
    const int ending = mSession.interrupts().ending();
    if (came && ending == 0) {
        pass(SIGINT);
    } else if (ending != 0 && mGrace < 0) {
        pass(ending);
        pass(SIGCONT);
        mGrace = kGraceMilliseconds;
    } else if (mGrace >= 0 && (mGrace -= interval) < 0) {
        complain("the program does not end: killing it");
        pass(SIGKILL);
        mGrace = kGraceMilliseconds;
    }
    return came;
}

int Program::wait() {
    int status = 0;
    while (true) {
        const pid_t pid = ::waitpid(mPid, &status, WNOHANG | WUNTRACED);
        if (pid < 0 && errno != EINTR) {
            return -1;
        }
        if (pid == mPid && WIFSTOPPED(status)) {
            stopTogether();
        } else if (pid == mPid) {
            return status;
        }
        (void)takeSignals();
    }
}

Result notRun(const Words& words, int error) {
    return Result::failed(quoted(words[0]) + " can't be run: " + std::strerror(error),
                          static_cast<ExitStatus>(error == ENOENT ? kNotFound : kNotExecutable));
}

Result programEnd(const Words& words, int status) {
    Result result;
    if (status < 0) {
        return Result::failed("the end of " + quoted(words[0]) + " is not known");
    }
    if (WIFSIGNALED(status)) {
        result.mStatus = static_cast<ExitStatus>(kSignalBase + WTERMSIG(status));
        result.mData.add("signal", WTERMSIG(status));
    } else {
        result.mStatus = static_cast<ExitStatus>(WEXITSTATUS(status));
        result.mData.add("exitCode", WEXITSTATUS(status));
    }
    return result;
}

Result runProgram(Session& session, sysDVRDrive& drive, const Words& words) {
    Program program(session, words, drive.recordingDirectory());
    const int status = program.pid() > 0 ? program.wait() : -1;
    return program.error() != 0 ? notRun(words, program.error()) : programEnd(words, status);
}

/// Waits until the drive is started. Shows no progress, because standard output belongs to the
/// program.
Result waitForStart(Session& session, sysDVRDrive& drive) {
    const std::unique_ptr<Work> work = session.published(startWork(session, drive));
    constexpr int interval = 10;  // milliseconds
    while (!work->ended()) {
        (void)::poll(nullptr, 0, interval);
    }
    return work->finish();
}

Result runDriveWith(Session& session, const Invocation& invocation) {
    sysDVRDrive* drive = nullptr;
    Result started = startDrive(session, invocation, drive);
    if (!started.good()) {
        return started;
    }
    started = waitForStart(session, *drive);
    if (!started.good()) {
        (void)drive->init();  // unmounts a partition that may be mounted
        return Result::failed(started.mError);
    }
    session.publish({statusName(sysDVRDrive::eStStarted), 100});
    const std::string directory = drive->recordingDirectory();
    Result result;
    if (session.interrupts().take()) {
        result = Result::failed("interrupted before the program was run");
    } else {
        result = runProgram(session, *drive, invocation.mArguments);
    }
    result.mData.add("recordings", directory);
    session.publish({"stopping", 0});
    if (!drive->stop()) {
        const std::string error = "the drive could not be stopped: " + failureReason(*drive) +
                                  "; end what uses it, then 'drive stop'";
        result.mError += (result.mError.empty() ? "" : "; ") + error;
        result.mStatus = eFailed;
    }
    return result;
}

}  // namespace

constexpr char kDriveWithHelp[] = R"(Run a program while the drive is started.

Starts the drive, runs COMMAND, without a shell, and stops the drive whatever
happens: when COMMAND fails, and at Ctrl-C, SIGTERM and SIGHUP, which COMMAND
gets first. The environment variable KESTROVA_RECORDINGS holds the directory
that recordings belong into.

Exit status:
  1  not started or not stopped
  N  COMMAND's own exit status; 128 + N when signal N ended it, 127 not found

Example:
  kestrova drive with -- sh -c 'exec recorder >$KESTROVA_RECORDINGS/film'
)";
const Command kDriveWithCommand = {"drive with", "-- COMMAND...", kDriveWithHelp,
                                   eOptionWait,  eNeedsDrive,     runDriveWith};

}  // namespace app
