// SPDX-License-Identifier: MIT
//
// The program childview as a tool.
#ifndef KESTROVA_TESTS_BASE_PROCESS_CHILDVIEWTOOL_H
#define KESTROVA_TESTS_BASE_PROCESS_CHILDVIEWTOOL_H

#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "base/io/linereader.h"
#include "base/process/tool.h"
#include "tests/unit/base/childview.h"

namespace tests {

inline base::ToolCommand childViewTool(const std::string& report,
                                       const std::vector<std::string>& actions) {
    base::ToolCommand command;
    command.mArguments = {KESTROVA_CHILDVIEW, report};
    command.mArguments.insert(command.mArguments.end(), actions.begin(), actions.end());
    command.mExecFailure = "Error spawning";
    command.mExecFailureStatus = 20;
    return command;
}

inline void readAll(std::FILE* stream, std::string& text) {
    for (int byte = base::readCharacter(stream); byte != EOF; byte = base::readCharacter(stream)) {
        text += static_cast<char>(byte);
    }
}

/// Runs a tool and reads all of its output.
inline base::ToolResult readOutput(const base::ToolCommand& command, std::string& output) {
    return base::readTool(command, [&output](std::FILE* stream) { readAll(stream, output); });
}

inline bool noChildLeft() {
    return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

}  // namespace tests

#endif
