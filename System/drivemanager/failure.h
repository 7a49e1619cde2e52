// SPDX-License-Identifier: MIT
// The reason for the calling thread's last failure on a drive or a partition, for
// sysPartition::lastFailure() and sysDVRDrive::lastFailure().
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_FAILURE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_FAILURE_H

#include "System/drivemanager/partition.h"

namespace drivemanager {

/// Records a failed system call; `error` is its errno. Preserves errno.
void noteFailure(sysPartition::FailureStep step, const char* path, int error);

/// Records a tool that did not exit with status 0; `status` is its raw wait status. For -1 the
/// current errno is recorded as well. Preserves errno.
void noteToolFailure(sysPartition::FailureStep step, const char* path, int status);

/// Returns the calling thread's last recorded failure; eFailNone if there is none.
const sysPartition::Failure& lastNotedFailure();

}  // namespace drivemanager

#endif
