// SPDX-License-Identifier: MIT
#include "app/commands/shell/shellcommand.h"

#include <string>

#include "app/cli/parse.h"
#include "app/commands/commands.h"
#include "app/session.h"

namespace app {

namespace {

/// Runs commands one after another.
class Shell {
public:
    explicit Shell(Session& session) : mSession(session), mInteractive(session.interactive()) {}

    /// Runs commands up to the first that fails; at a terminal, all of them.
    void run(const std::vector<Invocation>& invocations) {
        for (const Invocation& invocation : invocations) {
            if (over()) {
                return;
            }
            runOne(invocation);
        }
    }

    void read() {
        while (!over()) {
            std::string line;
            switch (mSession.readCommand(mInteractive ? "kestrova> " : "", line)) {
                case LineInput::eLine:
                    runLine(line);
                    break;
                case LineInput::eTooLong:
                    refuse("the line is too long");
                    break;
                case LineInput::eInterrupted:
                    interrupt();
                    break;
                case LineInput::eEnd:
                    endInput();
                    break;
            }
        }
    }

    ExitStatus status() const { return mStatus; }

private:
    void runOne(const Invocation& invocation) {
        if (invocation.mCommand != nullptr) {
            setStatus(mSession.run(invocation));
        } else if (!invocation.mAnswer.empty()) {
            mSession.streams().write(invocation.mAnswer);
            setStatus(eDone);
        } else {
            mOver = true;  // "exit"
        }
    }

    /// Returns true if no further command must run.
    bool over() {
        if (!mOver && mSession.interrupted()) {
            const int signal = mSession.interrupts().ending();
            if (!mInteractive) {
                complain("interrupted: the commands that follow are not run");
            }
            setStatus(signal == 0 ? eFailed : static_cast<ExitStatus>(kSignalBase + signal));
            mOver = true;
        }
        return mOver;
    }

    void runLine(const std::string& line) {
        std::vector<Invocation> invocations;
        const Result parsed = parseScript(line, mSession.streams().canAsk(), invocations);
        if (parsed.good()) {
            run(invocations);
        } else {
            refuse(parsed.mError);
        }
    }

    void refuse(const std::string& error) {
        printMisuse(mSession.streams(), mSession.json(), error);
        setStatus(eMisused);
    }

    void interrupt() {
        writeError("\n");
        if (!mInteractive && mSession.interrupts().ending() == 0) {
            setStatus(eFailed);
        }
    }

    void endInput() {
        if (mInteractive) {
            writeError("\n");
        }
        mOver = true;
    }

    void setStatus(ExitStatus status) {
        mStatus = status;
        mOver = mOver || (status != eDone && !mInteractive);
    }

    Session& mSession;
    bool mInteractive;
    bool mOver = false;
    ExitStatus mStatus = eDone;
};

}  // namespace

ExitStatus runScript(Session& session, const std::vector<Invocation>& script) {
    Shell shell(session);
    shell.run(script);
    return shell.status();
}

ExitStatus runInput(Session& session) {
    Shell shell(session);
    shell.read();
    return shell.status();
}

// Not a command of a session: it creates the session and runs its commands.
constexpr char kShellHelp[] = R"(Run several commands in one process.

Reads commands from standard input, or from -e, and runs them in one process,
the system being up between them. Commands end at ';' or the line's end; quotes,
backslash and '#' work as in a shell. 'help' and 'exit' are commands, too. A
line, or the whole of -e, is checked before the first of its commands runs.

From -e, a file or a pipe it ends at the first command that fails, with that
command's exit status; at a terminal it goes on, and ends with the status of the
last command. Drives that were started and not stopped stay mounted.

Exit status:
  1  failed, or Ctrl-C while something was waited for
  N  that of the command with which it ended; 128 + N when signal N ended it

Example:
  kestrova shell
  kestrova shell -e 'drive start; drive status; drive stop'
)";
const Command kShellCommand = {"shell",       "",     kShellHelp, eOptionExecute | eOptionWait,
                               eRunsCommands, nullptr};

}  // namespace app
