// SPDX-License-Identifier: MIT
//
// Runs one of the box's command-line tools to its end, with a pipe from it or to it.
#ifndef KESTROVA_BASE_PROCESS_TOOL_H
#define KESTROVA_BASE_PROCESS_TOOL_H

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace base {

/// A tool, its arguments, and how it is run. Standard streams that the pipe does not take are the
/// caller's; where the caller has none, the tool gets /dev/null. It inherits nothing else.
struct ToolCommand {
    std::vector<std::string> mArguments;   ///< the first is the program's path
    int mNice = 0;                         ///< what nice() adds to the caller's priority
    const char* mExecFailure = nullptr;    ///< the child's perror text when it cannot execute
    int mExecFailureStatus = 255;          ///< the child's exit status then
    const char* mStreamFailure = nullptr;  ///< logged at level 1 when no stream can be opened
    /// For readTool(): index of the argument that is replaced by the number of the pipe's writing
    /// end, which the tool inherits with the reading end; its standard output is the caller's then.
    /// 0: the pipe takes its standard output.
    std::size_t mPipeArgument = 0;
};

/// How a tool ended.
struct ToolResult {
    bool mRan = false;       ///< there was a child, and the caller's end of the pipe was a stream
    bool mExecuted = false;  ///< the child executed the tool
    int mStatus = -1;        ///< raw wait status; -1 when the child could not be waited for
    int mError = 0;          ///< errno of what failed: pipe, fork, stream, input, exec or wait

    bool succeeded() const { return mRan && mStatus == 0; }
};

/// Runs a tool and calls `reader` with its output, a stream that `reader` neither closes nor keeps.
/// What `reader` leaves is dropped with the stream. Blocks until the tool has exited.
///
/// Any thread may call. If the calling thread is cancelled in `reader`, or `reader` throws, the
/// rest of the output is read and the child reaped first.
ToolResult readTool(const ToolCommand& command, const std::function<void(std::FILE*)>& reader);

/// Runs a tool with `input` as its standard input. Blocks until the tool has exited. A child that
/// cannot be given the whole input is killed before its input ends, so that the tool never works
/// with a part of it; this includes that the calling thread is cancelled meanwhile.
ToolResult feedTool(const ToolCommand& command, const std::string& input);

}  // namespace base

#endif
