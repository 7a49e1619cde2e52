// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_PROCESS_POPEN3_H
#define KESTROVA_BASE_PROCESS_POPEN3_H

/// Starts a child process with pipes to its standard streams.
///
/// `in`, `out`, `err`: for each that is not null a pipe is made, connected to the child's standard
/// input, output or error, and the caller's end stored there: close-on-exec, so that no other child
/// holds it. A stream without a pipe is the caller's own.
/// `argv`: the program, as a path, and its arguments, ended by a null pointer.
/// `envp`: the environment, ended by a null pointer; null for the caller's own.
/// `extra`: further "NAME=VALUE" texts, ended by a null pointer, that replace entries of the same
/// name in the environment or are added to it; may be null.
/// `childHook`, `hookArgument`: called in the child just before the program is executed, where only
/// async-signal-safe functions may be used; may be null.
///
/// Returns the child's pid, to be waited for by the caller. A negative result is a failure: nothing
/// was started, no descriptor stored, errno tells why. Without a hook this includes a program that
/// cannot be executed, and the cost does not depend on the size of the caller; with a hook the
/// child is made by fork, and one that cannot execute ends with exit status 127.
///
/// The child has the signal mask and dispositions of the calling thread as after fork and exec.
/// Any thread may call; it blocks until the program runs. Nothing is logged. Only allocation
/// failure is thrown.
int kestrova_popen3_adv(int* in, int* out, int* err, const char** argv, char** envp,
                        const char** extra, void (*childHook)(void*), void* hookArgument);

#endif
