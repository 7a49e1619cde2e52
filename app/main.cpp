// SPDX-License-Identifier: MIT
//
// The command kestrova.
#include <algorithm>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "app/help.h"
#include "app/options.h"
#include "app/session.h"
#include "app/shell.h"
#include "app/standardstreams.h"
#include "base/outputlevel.h"

namespace {

using app::ExitStatus;
using app::Invocation;
using app::StandardStreams;

bool needDrive(const std::vector<Invocation>& invocations) {
    return std::any_of(invocations.begin(), invocations.end(), [](const Invocation& invocation) {
        return invocation.mCommand != nullptr && invocation.mCommand->mNeedsDrive;
    });
}

ExitStatus worse(ExitStatus status, ExitStatus end) {
    return status != app::eDone ? status : end;
}

/// Brings the system up as far as it is needed, runs, and takes it down.
ExitStatus runSession(StandardStreams& streams, const Invocation& invocation,
                      const std::vector<Invocation>& script) {
    const app::Options& options = invocation.mOptions;
    const bool reads = invocation.mCommand->mRun == nullptr && !options.mHasScript;
    // Without need of the drive it is left alone: a full start would unmount it.
    const bool minimal = options.mMinimal || (!reads && !needDrive(script));
    const app::Session::Setup setup = {minimal, options.mJson, reads && streams.canAsk()};
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
        if (streams.outputError() != 0) {
            app::printError(std::string("standard output: ") + std::strerror(streams.outputError()),
                            true);
            return worse(status, app::eFailed);
        }
        return status;
    } catch (const std::exception& error) {
        app::printError(error.what(), true);
        return app::eFailed;
    }
}
