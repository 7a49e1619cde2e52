// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_PROCESS_POPEN3_H
#define KESTROVA_BASE_PROCESS_POPEN3_H

/// Starts a child process with pipes to its standard streams.
///
/// `in`, `out`, `err`: for each one that is not null, a pipe is created and connected to the
/// child's standard input, output or error, and the caller's end is stored. It is close-on-exec, so
/// that no other child inherits it. The child inherits every standard stream without a pipe.
/// `argv`: the program, as a path, and its arguments, terminated by a null pointer.
/// `envp`: the environment, terminated by a null pointer; null for the caller's own.
/// `extra`: additional "NAME=VALUE" texts, terminated by a null pointer, that replace entries of
/// the same name in the environment or are added to it; may be null.
/// `childHook`, `hookArgument`: called in the child just before execve(); may use async-signal-safe
/// functions only; may be null.
///
/// Returns the child's pid; the caller waits for it. Returns a negative value, with errno set, on
/// failure: no child was started and no descriptor stored. Without a hook this includes a program
/// that cannot be executed, and the cost does not depend on the size of the caller. With a hook the
/// child is created by fork(), and exits with status 127 if it cannot execute the program.
///
/// The child has the signal mask and dispositions of the calling thread as after fork and exec. Any
/// thread may call it; it blocks until the program runs. Logs nothing. Throws only std::bad_alloc.
int kestrova_popen3_adv(int* in, int* out, int* err, const char** argv, char** envp,
                        const char** extra, void (*childHook)(void*), void* hookArgument);

#endif
