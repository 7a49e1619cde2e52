// SPDX-License-Identifier: MIT
//
// Starts children and waits for them: the one place for tools, commands of applications and the
// login prompt. Only shellcommand.h, which uses system(), has another way.
#ifndef KESTROVA_BASE_PROCESS_LAUNCHER_H
#define KESTROVA_BASE_PROCESS_LAUNCHER_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/process/childprocess.h"

namespace base {

/// Starts a child as the settings say. Returns its pid, which the caller waits for, or -1 and errno
/// when there is no child. With Birth::eSharedMemory a program that cannot be executed is such a
/// failure too; otherwise the child reports it and exits, as the settings say.
///
/// The program has the signal mask and dispositions of the calling thread, as after fork() and
/// execve(), except that it does not ignore SIGINT and SIGQUIT only because a shell command runs.
/// Any thread may call, at any time: there is no lock. Not cancellable. Only allocation failure is
/// thrown.
pid_t startChild(const ChildSettings& settings);

/// Pointers to the texts, ending with a null, for ChildSettings. The texts must outlive them.
std::vector<const char*> pointersTo(const std::vector<std::string>& arguments);

/// waitpid() that goes on after an interruption. Not cancellable, so that no child stays a zombie.
/// Returns the pid, or -1 and errno.
pid_t waitForChild(pid_t child, int& status);

}  // namespace base

#endif
