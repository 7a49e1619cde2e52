// SPDX-License-Identifier: MIT
//
// The command that follows work on the drive, in this process or in another one.
#include <algorithm>
#include <iterator>

#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/drive/drivedescription.h"
#include "app/session.h"
#include "app/ui/humantext.h"
#include "app/ui/progressview.h"
#include "base/outputlevel.h"

namespace app {

namespace {

using Holder = sysResourceLock::Holder;

/// Returns whether a state, as kestrova publishes it, ends by itself.
bool isWork(const std::string& state) {
    static const char* const names[] = {"formatting", "starting", "stopping", "checking",
                                        "partitioning"};
    return std::any_of(std::begin(names), std::end(names),
                       [&state](const char* name) { return state == name; });
}

Holder readHolder() {
    Holder holder;
    (void)sysResourceLock::holder(sysResourceLock::eResRecordingDrive, holder);
    return holder;
}

/// Returns the state of the drive, with every change that was seen.
Result withState(const Session& session, Result result, const Json& changes) {
    const DriveState state = stateOfDrive(session);
    if (!state.mFound.good()) {
        return state.mFound;
    }
    result.mText += statusText(state);
    result.mData = statusData(state);
    result.mData.add("changes", changes);
    return result;
}

/// Follows another process until its work has ended. Reads only the lock file meanwhile.
Result followHolder(Session& session, const Holder& first) {
    constexpr int interval = 20;  // milliseconds; short, because the final state is visible only
                                  // for a moment
    ProgressView view(session.streams(), "process " + std::to_string(first.mPid), session.quiet(),
                      kestrova_debug_output_level > 0);
    Holder holder = first;
    std::string last;
    bool interrupted = false;
    while (holder.mPid == first.mPid && holder.mSince == first.mSince && !interrupted) {
        last = holder.mState;
        view.show({last, holder.mPercent});
        if (!isWork(last)) {
            break;
        }
        interrupted = session.interrupts().wait(interval);
        holder = readHolder();
    }
    view.end();
    Result result;
    if (interrupted) {
        result = Result::failed("interrupted; " + holderText(first) + " goes on", eCancelled);
    } else if (isWork(last)) {
        result = Result::failed(holderText(first) + " ended while it was " + last);
    } else if (last == statusName(sysDVRDrive::eStError)) {
        result = Result::failed(holderText(first) + " has failed");
    }
    return withState(session, result, view.changes());
}

Result runDriveWatch(Session& session, const Invocation& /*invocation*/) {
    if (session.working()) {
        return session.follow();
    }
    if (!session.claimsDrive()) {
        const Holder holder = readHolder();
        if (holder.mHeld && isWork(holder.mState)) {
            return followHolder(session, holder);
        }
    }
    return withState(session, {}, Json::array());
}

}  // namespace

constexpr char kDriveWatchHelp[] = R"(Follow what runs until it has ended.

Follows a format or a mount that runs in this shell, started with --no-wait or
left with Ctrl-C, until it has ended; it then reports and exits as that command
would have done. Follows what another process does to the drive in the same way.
Without anything to follow it shows the status.

Exit status:
  1  what it followed has failed
  6  Ctrl-C; what it followed goes on

Example:
  kestrova shell -e 'drive format --yes --no-wait; drive watch'
)";
const Command kDriveWatchCommand = {
    "drive watch", "", kDriveWatchHelp, 0, eNeedsDrive | eRunsBesideWork, runDriveWatch};

}  // namespace app
