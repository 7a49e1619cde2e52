// SPDX-License-Identifier: MIT
//
// The locks that processes share.
#ifndef KESTROVA_APP_COMMANDS_RESOURCELOCK_H
#define KESTROVA_APP_COMMANDS_RESOURCELOCK_H

#include "System/sysResourceLock.h"
#include "app/cli/json.h"
#include "app/cli/result.h"

namespace app {

class Session;
struct Invocation;

/// Returns a holder as a JSON member: {"pid", "command", "since", "state", "progress"}, or "null"
/// if no holder is known.
Json holderData(const sysResourceLock::Holder& holder);

/// Takes a lock for a command. If another process holds it, waits as long as --wait permits, or
/// until Ctrl-C. Returns success, or a failure before anything was touched:
/// - eBusy: another process holds the lock; the error names it, and the data has "holder"
/// - eCancelled: Ctrl-C ended the wait
/// - eFailed: the lock file cannot be used; the error has the reason
Result takeLock(Session& session, const Invocation& invocation, sysResourceLock& lock,
                sysResourceLock::Mode mode);

}  // namespace app

#endif
