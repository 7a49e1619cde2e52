// SPDX-License-Identifier: MIT
/// @file
/// Shell command lines as child processes.
///
/// The command runs in "/bin/sh -c" with the caller's environment, signal mask and dispositions; a
/// signal that the application handles has its default action in the child. The caller owns the
/// descriptors and the stream: it reads to the end of file, closes them, and then reaps the child
/// with kestrova_pstatus(pid, status, true). Descriptors are close-on-exec, so that no other child
/// inherits them. The child inherits each standard stream for which no pipe was requested. Writing
/// to a child that has exited raises SIGPIPE, as with any pipe. A command that the shell cannot
/// find does not make a start fail: the shell then exits with code 127. The cost does not depend on
/// the size of the caller.
///
/// Threads: any thread may call these functions at any time; they do not wait for each other.
#ifndef KESTROVA_SYSTEM_KESTROVAPOPEN_H
#define KESTROVA_SYSTEM_KESTROVAPOPEN_H

#include <cstdio>

#include "base/export.h"

/// Result of kestrova_pstatus().
enum KestrovaChildState {
    eCsRunning = 0,     ///< still running (only when not waiting); status unchanged
    eCsExited = 1,      ///< exited; status is the exit code
    eCsKilled = 2,      ///< killed by a signal; status is its number
    eCsStopped = 3,     ///< stopped; status unchanged
    eCsWaitFailed = 4,  ///< the wait failed or was interrupted; status unchanged, errno set
};

/// Runs a command with a pipe for each standard stream whose pointer is not null. Blocks until the
/// shell runs. Logs nothing.
/// @param[out] in writing end of a pipe to the child's standard input; null for no pipe
/// @param[out] out reading end of a pipe from its standard output; null for no pipe
/// @param[out] err reading end of a pipe from its standard error; null for no pipe
/// @param command a shell command line of at most 131071 bytes, the kernel's limit for one argument
/// (MAX_ARG_STRLEN of execve(2)); a longer one fails with E2BIG
/// @return the child's pid; negative on failure, with errno set, nothing stored and no child
KESTROVA_EXPORT int kestrova_popen3(int* in, int* out, int* err, const char* command);

/// Runs a formatted command. See kestrova_popen3(). A command of more than 255 characters is cut to
/// its first 255.
/// @param[out] in writing end of a pipe to the child's standard input; null for no pipe
/// @param[out] out reading end of a pipe from its standard output; null for no pipe
/// @param[out] err reading end of a pipe from its standard error; null for no pipe
/// @param format a printf format, followed by its arguments
/// @return the child's pid; negative on failure, with errno set, nothing stored and no child. A
/// failed conversion, such as EILSEQ for "%ls", is a failure
KESTROVA_EXPORT int kestrova_vpopen3(int* in, int* out, int* err, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Queries a child's state, and reaps it if it has exited. Returns eCsWaitFailed on EINTR, so that
/// the caller can stop waiting. Logs nothing.
/// @param pid the child, as for waitpid()
/// @param[out] status exit code or signal number; see KestrovaChildState
/// @param wait true blocks until the child has exited; false does not block
/// @return a KestrovaChildState
KESTROVA_EXPORT int kestrova_pstatus(int pid, int& status, bool wait);

/// Runs a command with its standard output as a stream to read from. Blocks until the shell runs. A
/// failure to start is logged as a failed attention check (level 2). If only the stream cannot be
/// opened, the child is sent SIGINT and reaped, and the reading end of the pipe stays open.
/// @param[out] stream owned by the caller, which closes it with fclose(); unchanged if nothing was
/// started, null if it cannot be opened
/// @param command a shell command line of at most 131071 bytes; see kestrova_popen3()
/// @return the child's pid; 0 or negative on failure, with no child left
KESTROVA_EXPORT int kestrova_popen_fout(std::FILE*& stream, const char* command);

/// Runs a formatted command with its standard output as a stream. See kestrova_popen_fout(). A
/// command of more than 255 characters is cut to its first 255.
/// @param[out] stream owned by the caller, which closes it with fclose(); unchanged if nothing was
/// started, null if it cannot be opened
/// @param format a printf format, followed by its arguments
/// @return the child's pid; 0 or negative on failure, with no child left. A failed conversion is a
/// failure that runs nothing and logs nothing
KESTROVA_EXPORT int kestrova_popen_fout_fmt(std::FILE*& stream, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

#endif
