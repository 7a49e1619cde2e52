// SPDX-License-Identifier: MIT
#include "app/commands/resourcelock.h"

#include "app/cli/command.h"
#include "app/session.h"
#include "app/ui/deadline.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

Result notLocked(const sysResourceLock& lock) {
    if (!lock.busy()) {
        return Result::failed(printable(lock.reason()) + rootHint(lock.error()));
    }
    Result result = Result::failed(printable(lock.reason()), eBusy);
    result.mData.add(holderData(lock.blocker()));
    return result;
}

}  // namespace

Json holderData(const sysResourceLock::Holder& holder) {
    Json data;
    if (!holder.mHeld || holder.mPid == 0) {
        return data.add("holder", nullptr);
    }
    Json fields;
    fields.add("pid", holder.mPid).add("command", holder.mCommand).add("since", holder.mSince);
    fields.add("state", holder.mState).add("progress", holder.mPercent);
    return data.add("holder", fields);
}

Result takeLock(Session& session, const Invocation& invocation, sysResourceLock& lock,
                sysResourceLock::Mode mode) {
    constexpr int interval = 10;  // milliseconds
    const Deadline deadline(session.waitLimit(invocation));
    while (!lock.tryLock(mode)) {
        if (!lock.busy() || deadline.passed()) {
            return notLocked(lock);
        }
        if (session.interrupts().wait(interval)) {
            return Result::failed("cancelled while " + printable(lock.reason()), eCancelled);
        }
    }
    return {};
}

}  // namespace app
