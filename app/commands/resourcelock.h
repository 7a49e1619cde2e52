// SPDX-License-Identifier: MIT
//
// The locks that processes share, as commands take them.
#ifndef KESTROVA_APP_COMMANDS_RESOURCELOCK_H
#define KESTROVA_APP_COMMANDS_RESOURCELOCK_H

#include "System/sysResourceLock.h"
#include "app/cli/json.h"
#include "app/cli/result.h"

namespace app {

class Session;
struct Invocation;

/// A holder as the JSON documents show it: {"pid", "command", "since", "state", "progress"}; "null"
/// when nobody is known to hold the resource.
Json holderData(const sysResourceLock::Holder& holder);

/// Takes a lock for a command. When it is taken, waits as long as --wait allows, or until Ctrl-C.
/// Done, or a failure before which nothing was touched:
/// - eBusy: another process holds the lock; the error names it, and the data has "holder"
/// - eCancelled: Ctrl-C ended the wait
/// - eFailed: the lock file cannot be used; the error says why
Result takeLock(Session& session, const Invocation& invocation, sysResourceLock& lock,
                sysResourceLock::Mode mode);

}  // namespace app

#endif
