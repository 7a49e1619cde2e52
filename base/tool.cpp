// SPDX-License-Identifier: MIT
#include "base/tool.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/cancelguard.h"
#include "base/childprocess.h"
#include "base/sigpipeguard.h"

namespace base {

namespace {

constexpr int kLowPriority = 10;

/// The child from fork to exec: only what is safe in the child of a threaded process.
[[noreturn]] void runChild(const ToolCommand& command, int readEnd, int writeEnd) {
    fillStandardStreams();
    switch (command.mPipe) {
        case ToolPipe::eStandardOutput:
            (void)::dup2(writeEnd, STDOUT_FILENO);
            break;
        case ToolPipe::eStandardInput:
            (void)::dup2(readEnd, STDIN_FILENO);
            break;
        case ToolPipe::eBothEnds:
            // With the reading end in its hands too, the child does not die from the loss of a
            // caller who only watched: a repair that has begun is carried to its end.
            (void)::fcntl(readEnd, F_SETFD, 0);
            (void)::fcntl(writeEnd, F_SETFD, 0);
            break;
    }
    if (command.mLowPriority) {
        // Where it can't be lowered, the caller's priority has to do.
        [[maybe_unused]] const int priority = ::nice(kLowPriority);
    }
    (void)::execve(command.mArguments[0], const_cast<char* const*>(command.mArguments), environ);
    if (command.mExecFailure != nullptr) {
        reportInChild(command.mExecFailure);
    }
    ::_exit(command.mExecFailureStatus);
}

/// Reads what a child still writes, so that it can come to its end.
void drain(int descriptor) {
    char rest[512];
    while (readSome(descriptor, rest, sizeof(rest)) > 0) {
    }
}

}  // namespace

int waitForChild(pid_t child) {
    int status = -1;
    pid_t waited = -1;
    do {
        waited = ::waitpid(child, &status, 0);
    } while (waited < 0 && errno == EINTR);
    return waited == child ? status : -1;
}

Tool::~Tool() {
    if (mChild <= 0) {
        return;
    }
    const CancelGuard guard;
    if (mWriting) {
        mPipe.mWrite.reset();  // the end of its input, which the child waits for
    } else {
        drain(mPipe.mRead.valid() ? mPipe.mRead.get() : ::fileno(mpStream));
    }
    if (mpStream != nullptr) {
        closeStream();
    }
    (void)waitForChild(mChild);
}

Tool::Start Tool::start(const ToolCommand& command) {
    mWriting = command.mPipe == ToolPipe::eStandardInput;
    const pid_t child = ::fork();
    if (child == 0) {
        runChild(command, mPipe.mRead.get(), mPipe.mWrite.get());
    }
    if (child < 0) {
        mPipe = Pipe();
        return Start::eNoChild;
    }
    mChild = child;
    Descriptor& ours = mWriting ? mPipe.mWrite : mPipe.mRead;
    Descriptor& theirs = mWriting ? mPipe.mRead : mPipe.mWrite;
    theirs.reset();
    mpStream = ::fdopen(ours.get(), mWriting ? "w" : "r");
    if (mpStream == nullptr) {
        return Start::eNoStream;
    }
    (void)ours.release();
    return Start::eStarted;
}

void Tool::closeStream() {
    // Closing writes what is still buffered: a tool that is gone must not take us along.
    const SigpipeGuard guard;
    const CancelGuard cancelGuard;
    (void)std::fclose(std::exchange(mpStream, nullptr));
}

int Tool::finish() {
    closeStream();
    return waitForChild(std::exchange(mChild, -1));
}

}  // namespace base
