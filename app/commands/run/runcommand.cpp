// SPDX-License-Identifier: MIT
//
// The command that runs a command of the system's shell.
#include <cerrno>
#include <cstring>

#include "System/KestrovaPOpen.h"
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/session.h"
#include "app/ui/humantext.h"
#include "app/ui/relay.h"

namespace app {

namespace {

Result howItEnded(int pid) {
    int status = 0;
    int state = eCsWaitFailed;
    do {
        state = kestrova_pstatus(pid, status, true);
    } while (state == eCsWaitFailed && errno == EINTR);
    Result result;
    if (state == eCsExited) {
        result.mStatus = static_cast<ExitStatus>(status);
        result.mData.add("exitCode", status);
    } else if (state == eCsKilled) {
        result.mStatus = static_cast<ExitStatus>(kSignalBase + status);
        result.mData.add("signal", status);
    } else {
        return Result::failed(std::string("the command's end is not known: ") +
                              std::strerror(errno));
    }
    return result;
}

Result checkRun(const Words& arguments) {
    return arguments.size() == 1 ? Result()
                                 : Result::misused("unexpected argument " + quoted(arguments[1]) +
                                                   "; COMMAND is one argument: put it in quotes");
}

Result runRun(Session& session, const Invocation& invocation) {
    int in = -1;
    int out = -1;
    int err = -1;
    int pid = -1;
    {
        const InterruptibleChildren scope;
        pid = kestrova_popen3(invocation.mOptions.mIn ? &in : nullptr, &out, &err,
                              invocation.mArguments[0].c_str());
    }
    if (pid < 0) {
        return Result::failed(std::string("the shell could not be started: ") +
                              std::strerror(errno));
    }
    {
        Relay relay(session.streams(), in, out, err, session.quiet());
        relay.run(session.interrupts(), pid);
    }
    return howItEnded(pid);
}

}  // namespace

constexpr char kRunHelp[] = R"(Run a command of the system's shell.

COMMAND is one argument, in quotes, for '/bin/sh -c'. Its output and errors are
passed on; its input is empty unless --in. Returns when nobody has the command's
outputs open any more: lead those of a program that it leaves behind elsewhere.
With --json its output goes to standard error, too.

Exit status:
  1  the shell could not be started
  N  COMMAND's own exit status, whatever it is; 128 + N when signal N ended it

Example:
  kestrova run 'df -h | grep /dvr'
  kestrova run 'daemon >/dev/null 2>&1 &'
)";
const Command kRunCommand = {"run",           "COMMAND", kRunHelp, eOptionIn,
                             eRunsBesideWork, runRun,    checkRun};

}  // namespace app
