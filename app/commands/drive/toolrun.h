// SPDX-License-Identifier: MIT
//
// Runs a tool of the box whose output is not for people, and captures its output.
#ifndef KESTROVA_APP_COMMANDS_DRIVE_TOOLRUN_H
#define KESTROVA_APP_COMMANDS_DRIVE_TOOLRUN_H

#include <functional>
#include <string>

#include "base/process/tool.h"

namespace app {

/// Result of a tool.
struct ToolRun {
    /// Exit status; 128 + N if signal N killed it, 127 if there is no such program, -1 if no
    /// process could be created for it.
    int mStatus = -1;
    std::string mOutput;  ///< standard output, at most 1 MiB of it
    std::string mErrors;  ///< standard error, at most 1 MiB of it

    bool good() const { return mStatus == 0; }
    /// Returns why it failed, in one line: its exit status, and the first line of its standard
    /// error.
    std::string reason(const char* name) const;
};

/// Receives pieces of standard output and standard error as they arrive.
using ToolListener = std::function<void(const std::string& piece)>;

/// Returns a tool and its arguments as a shell command line. No argument needs quotes.
std::string commandLine(const base::ToolCommand& command);

/// Runs a shell command line in the C locale. Blocks until it has exited and no process has its
/// outputs open.
ToolRun runTool(const std::string& command, const ToolListener& listener = nullptr);

}  // namespace app

#endif
