// SPDX-License-Identifier: MIT
#include "System/drivemanager/failure.h"

#include <cerrno>
#include <cstring>

namespace drivemanager {

namespace {

using Failure = sysPartition::Failure;

// One per thread, like errno: the layout of the objects is fixed, so they cannot hold it.
thread_local Failure last;

void note(sysPartition::FailureStep step, const char* path, int error, int status) {
    last.mStep = step;
    last.mErrno = error;
    last.mToolStatus = status;
    const std::size_t length = ::strnlen(path, sizeof(last.mPath) - 1);
    // `path` may be the record's own mPath.
    std::memmove(last.mPath, path, length);
    last.mPath[length] = '\0';
}

}  // namespace

void noteFailure(sysPartition::FailureStep step, const char* path, int error) {
    note(step, path, error, 0);
}

void noteToolFailure(sysPartition::FailureStep step, const char* path, int status) {
    note(step, path, status == -1 ? errno : 0, status);
}

const Failure& lastNotedFailure() {
    return last;
}

}  // namespace drivemanager
