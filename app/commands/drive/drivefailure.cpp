// SPDX-License-Identifier: MIT
#include "app/commands/drive/drivefailure.h"

#include <sys/wait.h>

#include "app/ui/humantext.h"

namespace app {

namespace {

std::string toolEnd(int status) {
    if (WIFSIGNALED(status)) {
        return "ended by signal " + std::to_string(WTERMSIG(status));
    }
    constexpr int notFound = 127;  // from the shell; the formatters' children exit with 255
    constexpr int notExecuted = 255;
    const int code = WEXITSTATUS(status);
    return "exit status " + std::to_string(code) +
           (code == notFound || code == notExecuted ? ", perhaps the tool is missing" : "");
}

/// Returns ": " and the error of the system or the tool, or "".
std::string detail(const sysPartition::Failure& failure) {
    if (failure.mToolStatus > 0) {
        return ": " + toolEnd(failure.mToolStatus);
    }
    return failure.mErrno != 0 ? ": " + rootErrorText(failure.mErrno) : std::string();
}

}  // namespace

std::string driveFailureText(const sysPartition::Failure& failure) {
    const std::string path = printable(static_cast<const char*>(failure.mPath));
    switch (failure.mStep) {
        case sysPartition::eFailNone:
            break;
        case sysPartition::eFailOpen:
            return path + " can't be opened" + detail(failure);
        case sysPartition::eFailIdentify:
            return path + " does not report its identity";
        case sysPartition::eFailCapacity:
            return path + " does not report its size" + detail(failure);
        case sysPartition::eFailMissing:
            return "the drive lacks a partition";
        case sysPartition::eFailNotMounted:
            return path + " is not mounted any more";
        case sysPartition::eFailUnmount:
            return path + " can't be unmounted" + detail(failure);
        case sysPartition::eFailFormat:
            return path + " can't be formatted: mkfs.xfs" + detail(failure);
        case sysPartition::eFailDirectory:
            return path + " can't be made" + detail(failure);
        case sysPartition::eFailMount:
            return path + " can't be mounted: mount" + detail(failure);
        case sysPartition::eFailCheck:
            return path + " can't be checked: fsck.ext3" + detail(failure);
        case sysPartition::eFailThread:
            return "no thread for the work" + detail(failure);
        case sysPartition::eFailMemory:
            return "out of memory";
    }
    return {};
}

}  // namespace app
