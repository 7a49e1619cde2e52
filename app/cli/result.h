// SPDX-License-Identifier: MIT
//
// The one way in which the command's functions report failures.
#ifndef KESTROVA_APP_CLI_RESULT_H
#define KESTROVA_APP_CLI_RESULT_H

#include <string>
#include <utility>

#include "app/cli/json.h"

namespace app {

/// Exit status of the process. With 'run' and 'drive with' it can also be any status of the program
/// that they run.
enum ExitStatus : int {
    eDone = 0,
    eFailed = 1,
    eMisused = 2,  ///< nothing was touched
    eAbsent = 3,   ///< what was asked for does not exist; nothing else is wrong
    eRefused = 4,  ///< a document could not be opened
    eBroken = 5,   ///< a document broke off
    eCancelled = 6,
    eBusy = 7,  ///< another process has what the command needs; nothing was touched
};

/// A shell's exit status for a program that a signal has killed is this plus the signal's number.
constexpr int kSignalBase = 128;

/// The result of a command, or of one of its steps. A function that can fail for a reason that a
/// person should read returns a Result; what it produces goes to its output parameters. Session
/// prints the result of a command, as text or as JSON.
struct Result {
    ExitStatus mStatus = eDone;
    std::string mError;  ///< one line without line end; can be empty when the status says it all
    std::string mText;   ///< output for people, whole lines
    Json mData;          ///< the same for programs

    bool good() const { return mStatus == eDone; }

    static Result failed(std::string error, ExitStatus status = eFailed) {
        Result result;
        result.mStatus = status;
        result.mError = std::move(error);
        return result;
    }
    static Result misused(std::string error) { return failed(std::move(error), eMisused); }
};

}  // namespace app

#endif
