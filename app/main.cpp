// SPDX-License-Identifier: MIT
//
// The command kestrova.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "app/cli/help.h"
#include "app/cli/options.h"
#include "app/session.h"
#include "app/shell.h"
#include "app/ui/standardstreams.h"
#include "base/outputlevel.h"

namespace {

using app::ExitStatus;
using app::Invocation;
using app::StandardStreams;

ExitStatus worse(ExitStatus status, ExitStatus end) {
    return status != app::eDone ? status : end;
}

/// Brings the system up, runs the commands, and takes it down.
ExitStatus runSession(StandardStreams& streams, const Invocation& invocation,
                      const std::vector<Invocation>& script) {
    const app::Options& options = invocation.mOptions;
    const bool reads = invocation.mCommand->mRun == nullptr && !options.mHasScript;
    const app::Session::Setup setup = {options.mMinimal,
                                       options.mJson,
                                       reads && streams.canAsk(),
                                       invocation.mCommand->mRun == nullptr,
                                       reads,
                                       options.mWait};
    kestrova_debug_output_level = options.mLevel;
    app::Session session(streams, setup);
    const ExitStatus status =
        reads ? app::runShell(streams, session, setup) : app::runScript(streams, session, script);
    return worse(status, session.close());
}

ExitStatus run(StandardStreams& streams, const app::Words& words) {
    const app::Source source = {false, streams.canAsk()};
    Invocation invocation;
    std::vector<Invocation> script;
    std::string error;
    bool good = app::parseCommand(words, source, invocation, error);
    if (good && invocation.mOptions.mHasScript) {
        good = app::parseScript(invocation.mOptions.mScript, {true, source.mCanAsk}, script, error);
    }
    if (!good) {
        const bool json = std::find(words.begin(), words.end(), "--json") != words.end();
        app::printMisuse(streams, json, error);
        return app::eMisused;
    }
    if (invocation.mOptions.mHelp) {
        streams.write(app::helpText(invocation.mTopic));
        return app::eDone;
    }
    if (invocation.mOptions.mVersion) {
        streams.write("kestrova " KESTROVA_VERSION "\n");
        return app::eDone;
    }
    if (invocation.mCommand->mRun != nullptr) {
        script = {invocation};
    }
    return runSession(streams, invocation, script);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        StandardStreams streams;
        const ExitStatus status = run(streams, app::Words(argv + std::min(argc, 1), argv + argc));
        if (streams.outputError() == EPIPE) {
            return worse(status, app::eFailed);  // the reader has what it wanted
        }
        if (streams.outputError() != 0) {
            // A reader that has had enough, such as 'head', needs no message.
            if (streams.outputError() != EPIPE) {
                app::printError(
                    std::string("standard output: ") + std::strerror(streams.outputError()), true);
            }
            return worse(status, app::eFailed);
        }
        return status;
    } catch (const std::exception& error) {
        app::printError(error.what(), true);
        return app::eFailed;
    }
}
