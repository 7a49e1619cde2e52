// SPDX-License-Identifier: MIT
#include "base/tool.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "base/sigpipeguard.h"
#include "base/standardstreams.h"

namespace base {

namespace {

constexpr int kLowPriority = 10;

/// perror for a child that has not executed yet, where stdio must not be used.
void reportInChild(const char* text) {
    const char* const reason = ::strerrordesc_np(errno);
    const char* const pieces[] = {text, ": ", reason != nullptr ? reason : "Unknown error", "\n"};
    for (const char* const piece : pieces) {
        (void)writeAll(STDERR_FILENO, piece, std::strlen(piece));
    }
}

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
        (void)::nice(kLowPriority);
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
    if (mChild > 0) {
        (void)finish();
    }
}

Tool::Start Tool::start(const ToolCommand& command) {
    Pipe pipe = std::move(mPipe);
    mWriting = command.mPipe == ToolPipe::eStandardInput;
    const pid_t child = ::fork();
    if (child == 0) {
        runChild(command, pipe.mRead.get(), pipe.mWrite.get());
    }
    if (child < 0) {
        return Start::eNoChild;
    }
    Descriptor& ours = mWriting ? pipe.mWrite : pipe.mRead;
    Descriptor& theirs = mWriting ? pipe.mRead : pipe.mWrite;
    theirs.reset();
    mpStream = ::fdopen(ours.get(), mWriting ? "w" : "r");
    if (mpStream == nullptr) {
        if (mWriting) {
            ours.reset();  // the end of its input, which it waits for
        } else {
            drain(ours.get());
        }
        (void)waitForChild(child);
        return Start::eNoStream;
    }
    (void)ours.release();
    mChild = child;
    return Start::eStarted;
}

void Tool::closeStream() {
    // Closing writes what is still buffered: a tool that is gone must not take us along.
    const SigpipeGuard guard;
    (void)std::fclose(std::exchange(mpStream, nullptr));
}

int Tool::finish() {
    closeStream();
    return waitForChild(std::exchange(mChild, -1));
}

}  // namespace base
