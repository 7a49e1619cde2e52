// SPDX-License-Identifier: MIT
#include "base/process/tool.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "base/cancelguard.h"
#include "base/errnokeeper.h"
#include "base/io/descriptor.h"
#include "base/log/log.h"
#include "base/process/launcher.h"
#include "base/process/sigpipeguard.h"

namespace base {

namespace {

/// A number that a forked child shares with the caller. Not a pipe, because a child that another
/// thread forks could keep its end open.
class SharedNumber {
public:
    SharedNumber()
        : mpPage(::mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                        -1, 0)) {}
    ~SharedNumber() {
        if (valid()) {
            (void)::munmap(mpPage, sizeof(int));
        }
    }
    SharedNumber(const SharedNumber&) = delete;
    SharedNumber& operator=(const SharedNumber&) = delete;

    bool valid() const { return mpPage != MAP_FAILED; }
    int* get() const { return static_cast<int*>(mpPage); }

private:
    void* mpPage;
};

/// One run of a tool.
class ToolRun {
public:
    enum class Direction { eRead, eWrite };

    ToolRun(const ToolCommand& command, Direction direction)
        : mCommand(command), mReading(direction == Direction::eRead) {}
    ~ToolRun() {
        if (mChild > 0) {
            abandon();
        }
    }
    ToolRun(const ToolRun&) = delete;
    ToolRun& operator=(const ToolRun&) = delete;

    /// Starts the child and opens stream(). Returns false on failure, with no child left.
    bool start();
    std::FILE* stream() const { return mpStream; }
    /// Kills the child, so that it never sees the end of its input.
    void kill() const { (void)::kill(mChild, SIGKILL); }
    /// Closes the stream and waits for the child.
    void finish();
    /// Records the errno of the failure.
    void fail(int error) { mResult.mError = error; }
    ToolResult result() const { return mResult; }

private:
    bool failed() {
        fail(errno);
        return false;
    }
    pid_t startTool();
    void closeStream();
    void abandon();

    const ToolCommand& mCommand;
    const bool mReading;
    SharedNumber mExecError;
    Pipe mPipe;
    std::FILE* mpStream = nullptr;
    pid_t mChild = -1;
    ToolResult mResult;
};

pid_t ToolRun::startTool() {
    const bool numbered = mReading && mCommand.mPipeArgument != 0;
    const std::string number = std::to_string(mPipe.mWrite.get());
    std::vector<const char*> arguments = pointersTo(mCommand.mArguments);

    ChildSettings settings;
    if (numbered) {
        // The tool inherits the reading end as well, so that it does not get SIGPIPE if a caller
        // that only watches dies: a started repair must be completed.
        arguments[mCommand.mPipeArgument] = number.c_str();
        settings.mKept[0] = mPipe.mRead.get();
        settings.mKept[1] = mPipe.mWrite.get();
    } else if (mReading) {
        settings.mStreams[STDOUT_FILENO] = mPipe.mWrite.get();
    } else {
        settings.mStreams[STDIN_FILENO] = mPipe.mRead.get();
    }
    settings.mArguments = arguments.data();
    settings.mFillStreams = true;
    settings.mNice = mCommand.mNice;
    settings.mFailureText = mCommand.mExecFailure;
    settings.mFailureStatus = mCommand.mExecFailureStatus;
    settings.mpError = mExecError.get();
    return startChild(settings);
}

bool ToolRun::start() {
    if (!mExecError.valid() || !mPipe.open()) {
        return failed();
    }
    mChild = startTool();
    if (mChild < 0) {
        return failed();
    }
    Descriptor& ours = mReading ? mPipe.mRead : mPipe.mWrite;
    Descriptor& theirs = mReading ? mPipe.mWrite : mPipe.mRead;
    theirs.reset();
    mpStream = ::fdopen(ours.get(), mReading ? "r" : "w");
    if (mpStream != nullptr) {
        (void)ours.release();
        mResult.mRan = true;
        return true;
    }
    (void)failed();
    if (mCommand.mStreamFailure != nullptr) {
        logMessage(1, "%s", mCommand.mStreamFailure);
    }
    abandon();
    return false;
}

void ToolRun::closeStream() {
    // Closing flushes the buffer, which raises SIGPIPE if the tool has exited.
    const SigpipeGuard guard;
    const CancelGuard cancelGuard;
    (void)std::fclose(std::exchange(mpStream, nullptr));
}

void ToolRun::finish() {
    closeStream();
    int status = -1;
    if (waitForChild(mChild, status) == mChild) {
        mResult.mStatus = status;
    } else if (mResult.mError == 0) {
        fail(errno);
    }
    mChild = -1;
    mResult.mExecuted = *mExecError.get() == 0;
    if (!mResult.mExecuted) {
        fail(*mExecError.get());
    }
}

/// Waits for the child after a failure or a cancellation.
void ToolRun::abandon() {
    const ErrnoKeeper keeper;
    const CancelGuard guard;
    if (mReading) {
        // Drain the pipe: the tool may be blocked on a write.
        char rest[512];
        const int descriptor = mpStream != nullptr ? ::fileno(mpStream) : mPipe.mRead.get();
        while (readSome(descriptor, rest, sizeof(rest)) > 0) {
        }
    } else {
        kill();
    }
    if (mpStream != nullptr) {
        closeStream();
    }
    mPipe = Pipe();
    int status = 0;
    (void)waitForChild(std::exchange(mChild, -1), status);
}

}  // namespace

ToolResult readTool(const ToolCommand& command, const std::function<void(std::FILE*)>& reader) {
    ToolRun run(command, ToolRun::Direction::eRead);
    if (run.start()) {
        reader(run.stream());
        run.finish();
    }
    return run.result();
}

ToolResult feedTool(const ToolCommand& command, const std::string& input) {
    ToolRun run(command, ToolRun::Direction::eWrite);
    if (run.start()) {
        {
            // Bypass the stream, which would retry a failed write when it is closed. The guard is
            // for a tool that has exited.
            const SigpipeGuard guard;
            if (!writeAll(::fileno(run.stream()), input.data(), input.size())) {
                run.fail(errno);
                run.kill();
            }
        }
        run.finish();
    }
    return run.result();
}

}  // namespace base
