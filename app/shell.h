// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_SHELL_H
#define KESTROVA_APP_SHELL_H

#include <vector>

#include "app/cli/options.h"
#include "app/session.h"

namespace app {

/// Runs commands that have been parsed, up to the first that fails or "exit".
ExitStatus runScript(StandardStreams& streams, Session& session,
                     const std::vector<Invocation>& script);

/// Reads commands from the input and runs them; see the shell's help.
ExitStatus runShell(StandardStreams& streams, Session& session, const Session::Setup& setup);

}  // namespace app

#endif
