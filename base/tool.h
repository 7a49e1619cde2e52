// SPDX-License-Identifier: MIT
//
// Runs one of the box's command-line tools as a child, with a pipe to or from it. The one place
// that knows how to start such a child and how to wait for it.
#ifndef KESTROVA_BASE_TOOL_H
#define KESTROVA_BASE_TOOL_H

#include <sys/types.h>

#include <cstdio>

#include "base/descriptor.h"

namespace base {

/// What the child gets of the pipe.
enum class ToolPipe {
    eStandardOutput,  ///< its standard output writes into the pipe, the caller reads
    eStandardInput,   ///< its standard input reads from the pipe, the caller writes
    eBothEnds,        ///< both ends under the numbers they have here, the caller reads
};

/// How to start a tool. All texts are the caller's and live until start() has returned.
struct ToolCommand {
    const char* const* mArguments;  ///< ended by a null pointer; the first is also the program
    ToolPipe mPipe;
    bool mLowPriority;         ///< run at nice 10
    const char* mExecFailure;  ///< the child's perror text when it cannot execute, or null
    int mExecFailureStatus;    ///< the child's exit status then
};

/// One run of a tool. Standard streams that the pipe does not take are the caller's; where the
/// caller has none, the child gets /dev/null, so that no file that the tool opens becomes its
/// standard error. Nothing else is handed on.
class Tool {
public:
    enum class Start {
        eStarted,   ///< the child runs and stream() is open
        eNoChild,   ///< there is no child
        eNoStream,  ///< no stream could be opened; the destructor waits for the child
    };

    Tool() = default;
    /// Waits for a child that finish() has not waited for: what it still writes is read and thrown
    /// away, its input ends.
    ~Tool();
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    /// Makes the pipe; false on failure. Comes before start(), because the arguments may name an
    /// end of it.
    bool openPipe() { return mPipe.open(); }
    /// Number of the end that the child writes to.
    int writeDescriptor() const { return mPipe.mWrite.get(); }

    /// Starts the child.
    Start start(const ToolCommand& command);

    /// The caller's end of the pipe; owned here.
    std::FILE* stream() const { return mpStream; }

    /// Closes the stream and waits for the child. Returns its raw wait status, or -1 when it could
    /// not be waited for. What could not be written any more is no failure of its own: the tool's
    /// status tells.
    int finish();

private:
    void closeStream();

    Pipe mPipe;
    std::FILE* mpStream = nullptr;
    bool mWriting = false;
    pid_t mChild = -1;
};

/// waitpid that goes on after an interruption. The raw status, or -1 when it failed.
int waitForChild(pid_t child);

}  // namespace base

#endif
