// SPDX-License-Identifier: MIT
#include "app/shell.h"

#include <string>

#include "app/cli/help.h"

namespace app {

namespace {

class Shell {
public:
    Shell(StandardStreams& streams, Session& session, bool interactive, bool json)
        : mStreams(streams), mSession(session), mInteractive(interactive), mJson(json) {}

    /// Runs commands as long as they go well, at a terminal all of them.
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
                case LineReader::eLine:
                    runLine(line);
                    break;
                case LineReader::eTooLong:
                    refuse("the line is too long");
                    break;
                case LineReader::eInterrupted:
                    interrupt();
                    break;
                case LineReader::eEnd:
                    endInput();
                    break;
            }
        }
    }

    ExitStatus status() const { return mStatus; }

private:
    void runOne(const Invocation& invocation) {
        if (invocation.mExit) {
            mOver = true;
        } else if (invocation.mOptions.mHelp) {
            mStreams.write(helpText(invocation.mTopic));
            setStatus(eDone);
        } else {
            setStatus(mSession.run(invocation));
        }
    }

    /// True when nothing is to be run any more.
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
        std::string error;
        if (parseScript(line, {true, mStreams.canAsk()}, invocations, error)) {
            run(invocations);
        } else {
            refuse(error);
        }
    }

    void refuse(const std::string& error) {
        printMisuse(mStreams, mJson, error);
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

    StandardStreams& mStreams;
    Session& mSession;
    bool mInteractive;
    bool mJson;
    bool mOver = false;
    ExitStatus mStatus = eDone;
};

}  // namespace

ExitStatus runScript(StandardStreams& streams, Session& session,
                     const std::vector<Invocation>& script) {
    Shell shell(streams, session, false, false);
    shell.run(script);
    return shell.status();
}

ExitStatus runShell(StandardStreams& streams, Session& session, const Session::Setup& setup) {
    Shell shell(streams, session, setup.mInteractive, setup.mJson);
    shell.read();
    return shell.status();
}

}  // namespace app
