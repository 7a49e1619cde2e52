// SPDX-License-Identifier: MIT
//
// Starts children and waits for them, for tools, commands of applications and the login prompt.
// Only shellcommand.h does not use it, because it calls system().
#ifndef KESTROVA_BASE_PROCESS_LAUNCHER_H
#define KESTROVA_BASE_PROCESS_LAUNCHER_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/process/childprocess.h"

namespace base {

/// Starts a child with these settings. Returns its pid, which the caller waits for, or -1 with
/// errno set if no child was started. With Birth::eSharedMemory a program that cannot be executed
/// is such a failure as well; otherwise the child reports it and exits.
///
/// The program has the signal mask and dispositions of the calling thread, as after fork() and
/// execve(), except that it does not ignore SIGINT and SIGQUIT only because a shell command runs.
/// Any thread may call it at any time, without a lock. Not cancellable. Throws only std::bad_alloc.
pid_t startChild(const ChildSettings& settings);

/// Returns pointers to the texts, followed by a null, for ChildSettings. The texts must outlive
/// them.
std::vector<const char*> pointersTo(const std::vector<std::string>& arguments);

/// waitpid() that retries on EINTR. Not cancellable, so that no child remains a zombie. Returns the
/// pid, or -1 with errno set.
pid_t waitForChild(pid_t child, int& status);

}  // namespace base

#endif
