// SPDX-License-Identifier: MIT
//
// Parses words into a command with its options.
#ifndef KESTROVA_APP_CLI_PARSE_H
#define KESTROVA_APP_CLI_PARSE_H

#include <string_view>
#include <vector>

#include "app/cli/command.h"

namespace app {

/// Origin of the words.
struct Source {
    bool mShell;   ///< a line of a shell, not the arguments of the process
    bool mCanAsk;  ///< a person can answer a question
};

/// Parses the words of one command and checks everything that can be checked without touching the
/// machine. Fails with eMisused and a message that names the word and the next step.
Result parseCommand(const Words& words, const Source& source, Invocation& invocation);

/// Parses all commands of a shell's text, and appends them. Fails like parseCommand() on the first
/// command that is wrong.
Result parseScript(std::string_view text, bool canAsk, std::vector<Invocation>& invocations);

}  // namespace app

#endif
