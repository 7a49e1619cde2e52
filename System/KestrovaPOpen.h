// SPDX-License-Identifier: MIT
/// @file
/// Shell command lines as child processes.
///
/// All of these may be called from any thread at any time. The command runs in "/bin/sh -c" with
/// the caller's environment, signal mask and dispositions. The caller owns what it is given: it
/// reads to the end of file, closes, and then reaps the child with kestrova_pstatus(pid, status,
/// true). Descriptors are close-on-exec, so that no other child holds them. What is not piped is
/// the caller's own. Writing to a child that has ended raises SIGPIPE, as with any pipe. A command
/// that the shell cannot find is started all the same: the exit code is 127 then. The cost does not
/// depend on the size of the caller.
#ifndef KESTROVA_SYSTEM_KESTROVAPOPEN_H
#define KESTROVA_SYSTEM_KESTROVAPOPEN_H

#include <cstdio>

#include "base/export.h"

/// What kestrova_pstatus() found.
enum KestrovaChildState {
    eCsRunning = 0,     ///< still running (only when not waiting); status untouched
    eCsExited = 1,      ///< ended by itself; status is the exit code
    eCsKilled = 2,      ///< ended by a signal; status is its number
    eCsStopped = 3,     ///< stopped; status untouched
    eCsWaitFailed = 4,  ///< not waited for, or interrupted; status untouched, errno tells why
};

/// Runs a command with a pipe for each standard stream that is asked for. Blocks until the shell
/// runs. Logs nothing.
/// @param[out] in writing end of a pipe to the child's standard input; null for no pipe
/// @param[out] out reading end of a pipe from its standard output; null for no pipe
/// @param[out] err reading end of a pipe from its standard error; null for no pipe
/// @param command a shell command line of any length
/// @return the child's pid; negative, with nothing stored, when nothing could be started: errno
/// tells why
KESTROVA_EXPORT int kestrova_popen3(int* in, int* out, int* err, const char* command);

/// As kestrova_popen3(), with a printf format. The command is cut to 255 characters.
/// @param[out] in as there
/// @param[out] out as there
/// @param[out] err as there
/// @param format a printf format, followed by its arguments
/// @return as there
KESTROVA_EXPORT int kestrova_vpopen3(int* in, int* out, int* err, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Asks after a child. One that has ended is reaped. An interrupted wait is not taken up again, so
/// that the caller can give up.
/// @param pid the child, as for waitpid()
/// @param[out] status exit code or signal number, as KestrovaChildState tells
/// @param wait true blocks until the child has ended
/// @return a KestrovaChildState
KESTROVA_EXPORT int kestrova_pstatus(int pid, int& status, bool wait);

/// Runs a command with its standard output as a stream to read from. A failure to start is reported
/// as a failed attention check (level 2); when only the stream cannot be opened it is null, the
/// child is sent SIGINT and waited for, the reading end stays open, and the result is -1.
/// @param[out] stream the caller's, to be closed with fclose(); untouched when nothing started
/// @param command a shell command line of any length
/// @return the child's pid; 0 or negative, with no child left, on failure
KESTROVA_EXPORT int kestrova_popen_fout(std::FILE*& stream, const char* command);

/// As kestrova_popen_fout(), with a printf format. The command is cut to 255 characters.
/// @param[out] stream as there
/// @param format a printf format, followed by its arguments
/// @return as there
KESTROVA_EXPORT int kestrova_popen_fout_fmt(std::FILE*& stream, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

#endif
