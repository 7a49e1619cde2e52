// SPDX-License-Identifier: MIT
//
// Runs one of the box's command-line tools to completion, with a pipe from it or to it.
#ifndef KESTROVA_BASE_PROCESS_TOOL_H
#define KESTROVA_BASE_PROCESS_TOOL_H

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace base {

/// A tool, its arguments and settings. It inherits the caller's standard streams except the one
/// that the pipe replaces, with /dev/null for missing ones, and nothing else.
struct ToolCommand {
    std::vector<std::string> mArguments;   ///< the first is the program's path
    int mNice = 0;                         ///< increment for nice()
    const char* mExecFailure = nullptr;    ///< the child's perror text if execve() fails
    int mExecFailureStatus = 255;          ///< the child's exit status if execve() fails
    const char* mStreamFailure = nullptr;  ///< logged at level 1 if the stream cannot be opened
    /// For readTool(): index of the argument that is replaced with the number of the pipe's writing
    /// end. The tool inherits both ends of the pipe and the caller's standard output. 0: the pipe
    /// is the tool's standard output.
    std::size_t mPipeArgument = 0;
};

/// Result of a run.
struct ToolResult {
    bool mRan = false;       ///< a child was started and the stream was opened
    bool mExecuted = false;  ///< the child executed the tool
    int mStatus = -1;        ///< raw wait status; -1 if the wait failed
    int mError = 0;          ///< errno of the failure: pipe, fork, stream, input, exec or wait

    bool succeeded() const { return mRan && mStatus == 0; }
};

/// Runs a tool and calls `reader` with its output, a stream that `reader` neither closes nor keeps.
/// Output that `reader` does not read is discarded. Blocks until the tool has exited.
///
/// Any thread may call it. If the calling thread is cancelled in `reader`, or `reader` throws, the
/// rest of the output is read and the child reaped first.
ToolResult readTool(const ToolCommand& command, const std::function<void(std::FILE*)>& reader);

/// Runs a tool with `input` as its standard input. Blocks until the tool has exited. If the whole
/// input cannot be written, or the calling thread is cancelled meanwhile, the child is killed
/// before it sees the end of its input, so that the tool never processes a part of it.
ToolResult feedTool(const ToolCommand& command, const std::string& input);

}  // namespace base

#endif
