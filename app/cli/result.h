// SPDX-License-Identifier: MIT
//
// The only way in which the command's functions report failures.
#ifndef KESTROVA_APP_CLI_RESULT_H
#define KESTROVA_APP_CLI_RESULT_H

#include <string>
#include <utility>

#include "app/cli/json.h"

namespace app {

/// Exit status of the process. 'run' and 'drive with' can also exit with any status of the program
/// that they run.
enum ExitStatus : int {
    eDone = 0,
    eFailed = 1,
    eMisused = 2,  ///< nothing was touched
    eAbsent = 3,   ///< the requested object does not exist; no other error
    eRefused = 4,  ///< a document could not be opened
    eBroken = 5,   ///< a document was cut off
    eCancelled = 6,
    eBusy = 7,  ///< another process holds a lock that the command needs; nothing was touched
};

/// The exit status for a program that was killed by signal N is this plus N, as in a shell.
constexpr int kSignalBase = 128;

/// The result of a command, or of one of its steps. A function returns a Result if it can fail for
/// a reason that a person should read; it returns its values in output parameters. Session prints
/// the result of a command, as text or as JSON.
struct Result {
    ExitStatus mStatus = eDone;
    std::string mError;  ///< one line without a newline; can be empty if the status is sufficient
    std::string mText;   ///< output for people, whole lines
    Json mData;          ///< the same output for programs

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
