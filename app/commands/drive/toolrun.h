// SPDX-License-Identifier: MIT
//
// Runs a tool of the box whose output is not for people, and keeps what it printed.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_TOOLRUN_H
#define KESTROVA_APP_COMMANDS_DRIVE_TOOLRUN_H

#include <functional>
#include <string>

#include "base/process/tool.h"

namespace app {

/// What came of a tool.
struct ToolRun {
    /// Exit status; 128 + N if signal N ended it, 127 if there is no such program, -1 if no process
    /// could be made for it.
    int mStatus = -1;
    std::string mOutput;  ///< standard output, at most 1 MiB of it
    std::string mErrors;  ///< standard error, at most 1 MiB of it

    bool good() const { return mStatus == 0; }
    /// Why it failed, in one line: its exit status, and the first line of its standard error.
    std::string reason(const char* name) const;
};

/// Called with pieces of standard output and standard error, as they come.
using ToolListener = std::function<void(const std::string& piece)>;

/// A tool and its arguments as a shell command line. None of them needs quotes.
std::string commandLine(const base::ToolCommand& command);

/// Runs a shell command line in the C locale. Blocks until it has ended and nobody has its outputs
/// open any more.
ToolRun runTool(const std::string& command, const ToolListener& listener = nullptr);

}  // namespace app

#endif
