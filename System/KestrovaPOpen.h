// SPDX-License-Identifier: MIT
/// @file
/// Shell command lines as child processes.
///
/// Any thread may call these functions at any time; they do not wait for each other. The command
/// runs in "/bin/sh -c" with the caller's environment, signal mask and dispositions; a signal that
/// the application handles has its default action there. The caller owns the descriptors and the
/// stream: it reads to the end of file, closes, and then reaps the child with kestrova_pstatus(pid,
/// status, true). Descriptors are close-on-exec, so that no other child holds them. A standard
/// stream without a pipe is the caller's own. Writing to a child that has exited raises SIGPIPE, as
/// with any pipe. A command that the shell cannot find is started all the same: the exit code is
/// 127 then. The cost does not depend on the size of the caller.
#ifndef KESTROVA_SYSTEM_KESTROVAPOPEN_H
#define KESTROVA_SYSTEM_KESTROVAPOPEN_H

#include <cstdio>

#include "base/export.h"

/// What kestrova_pstatus() found.
enum KestrovaChildState {
    eCsRunning = 0,     ///< still running (only when not waiting); status untouched
    eCsExited = 1,      ///< exited; status is the exit code
    eCsKilled = 2,      ///< killed by a signal; status is its number
    eCsStopped = 3,     ///< stopped; status untouched
    eCsWaitFailed = 4,  ///< not waited for, or interrupted; status untouched, errno tells why
};

/// Runs a command with a pipe for each standard stream that is asked for. Blocks until the shell
/// runs. Logs nothing.
/// @param[out] in writing end of a pipe to the child's standard input; null for no pipe
/// @param[out] out reading end of a pipe from its standard output; null for no pipe
/// @param[out] err reading end of a pipe from its standard error; null for no pipe
/// @param command a shell command line of at most 131071 bytes, the kernel's limit for one argument
/// (MAX_ARG_STRLEN of execve(2)); a longer one fails with E2BIG
/// @return the child's pid; negative, with nothing stored and nothing run, on failure, with errno
KESTROVA_EXPORT int kestrova_popen3(int* in, int* out, int* err, const char* command);

/// Runs a formatted command. See kestrova_popen3(). A command of more than 255 characters is cut to
/// its first 255.
/// @param[out] in writing end of a pipe to the child's standard input; null for no pipe
/// @param[out] out reading end of a pipe from its standard output; null for no pipe
/// @param[out] err reading end of a pipe from its standard error; null for no pipe
/// @param format a printf format, followed by its arguments
/// @return the child's pid; negative, with nothing stored and nothing run, on failure, with errno;
/// this includes a conversion that fails, such as EILSEQ for "%ls"
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
/// @param[out] stream the caller's, to be closed with fclose(); untouched if nothing was started,
/// null if it cannot be opened
/// @param command a shell command line of at most 131071 bytes; see kestrova_popen3()
/// @return the child's pid; 0 or negative, with no child left, on failure
KESTROVA_EXPORT int kestrova_popen_fout(std::FILE*& stream, const char* command);

/// Runs a formatted command with its standard output as a stream. See kestrova_popen_fout(). A
/// command of more than 255 characters is cut to its first 255.
/// @param[out] stream the caller's, to be closed with fclose(); untouched if nothing was started,
/// null if it cannot be opened
/// @param format a printf format, followed by its arguments
/// @return the child's pid; 0 or negative, with no child left, on failure; this includes a
/// conversion that fails, which runs nothing and logs nothing
KESTROVA_EXPORT int kestrova_popen_fout_fmt(std::FILE*& stream, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

#endif
