// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_CLI_RESULT_H
#define KESTROVA_APP_CLI_RESULT_H

#include <string>
#include <utility>

#include "app/cli/json.h"

namespace app {

/// Exit status of the process; that of a command that was run can be any other, too.
enum ExitStatus : int {
    eDone = 0,
    eFailed = 1,
    eMisused = 2,  ///< nothing was touched
    eAbsent = 3,   ///< what was asked for is not there, and nothing else is wrong
    eRefused = 4,  ///< a document could not be opened
    eBroken = 5,   ///< a document broke off
    eCancelled = 6,
    eBusy = 7,  ///< another process has what the command needs; nothing was touched
};

/// What a shell adds to the number of the signal that ended a command.
constexpr int kSignalBase = 128;

/// What a command has to say. It is printed in one place, as text or as JSON.
struct Result {
    ExitStatus mStatus = eDone;
    std::string mError;  ///< one line without its end; empty when the command is done,
                         ///< or when there is nothing to say about its status
    std::string mText;   ///< lines for people
    JsonObject mData;    ///< the same for programs

    static Result failed(std::string error, ExitStatus status = eFailed) {
        Result result;
        result.mStatus = status;
        result.mError = std::move(error);
        return result;
    }
};

}  // namespace app

#endif
