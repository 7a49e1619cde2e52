// SPDX-License-Identifier: MIT
//
// The reason of the calling thread's last failure on a drive or a partition, kept for
// sysPartition::lastFailure() and sysDVRDrive::lastFailure().
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_FAILURE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_FAILURE_H

#include "System/drivemanager/partition.h"

namespace drivemanager {

/// Records a failed system call; `error` is its errno. Keeps errno.
void noteFailure(sysPartition::FailureStep step, const char* path, int error);

/// Records a tool that did not end with status 0; `status` is its raw wait status. For -1 the
/// current errno is recorded too. Keeps errno.
void noteToolFailure(sysPartition::FailureStep step, const char* path, int status);

/// The calling thread's last recorded failure; eFailNone before the first one.
const sysPartition::Failure& lastNotedFailure();

}  // namespace drivemanager

#endif
