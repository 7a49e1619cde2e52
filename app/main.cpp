// SPDX-License-Identifier: MIT
//
// The command kestrova.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "app/cli/parse.h"
#include "app/commands/shell/shellcommand.h"
#include "app/session.h"
#include "app/ui/standardstreams.h"
#include "base/outputlevel.h"

namespace {

using app::ExitStatus;
using app::Invocation;
using app::StandardStreams;

ExitStatus worse(ExitStatus status, ExitStatus end) {
    return status != app::eDone ? status : end;
}

ExitStatus run(StandardStreams& streams, const app::Words& words) {
    Invocation invocation;
    std::vector<Invocation> script;
    app::Result parsed = app::parseCommand(words, {false, streams.canAsk()}, invocation);
    const app::Options& options = invocation.mOptions;
    if (parsed.good() && options.mScript) {
        parsed = app::parseScript(*options.mScript, streams.canAsk(), script);
    }
    if (!parsed.good()) {
        const bool json = std::find(words.begin(), words.end(), "--json") != words.end();
        app::printMisuse(streams, json, parsed.mError);
        return app::eMisused;
    }
    if (invocation.mCommand == nullptr) {
        streams.write(invocation.mAnswer);
        return app::eDone;
    }
    kestrova_debug_output_level = options.mLevel;
    app::Session session(streams, invocation);
    const ExitStatus status = !invocation.mCommand->has(app::eRunsCommands)
                                  ? session.run(invocation)
                              : options.mScript ? app::runScript(session, script)
                                                : app::runInput(session);
    return worse(status, session.close());
}

}  // namespace

int main(int argc, char** argv) {
    try {
        StandardStreams streams;
        const ExitStatus status = run(streams, app::Words(argv + std::min(argc, 1), argv + argc));
        if (streams.outputError() == 0) {
            return status;
        }
        // A reader that has enough data, such as 'head', needs no message.
        if (streams.outputError() != EPIPE) {
            app::printError(std::string("standard output: ") + std::strerror(streams.outputError()),
                            true);
        }
        return worse(status, app::eFailed);
    } catch (const std::exception& error) {  // out of memory, or of descriptors
        app::printError(error.what(), true);
        return app::eFailed;
    }
}
