// SPDX-License-Identifier: MIT
//
// Runs in the child between its start and execve(): only code that is safe in the child of a
// multithreaded process, and in a child that shares the caller's memory. See launcher.h for the
// start.
#ifndef KESTROVA_BASE_PROCESS_CHILDPROCESS_H
#define KESTROVA_BASE_PROCESS_CHILDPROCESS_H

#include <unistd.h>

#include <csignal>

namespace base {

/// How a child is created.
enum class Birth {
    /// By fork(): the child has its own memory, so it may run async-signal-safe code for any length
    /// of time while the caller continues. The cost grows with the caller's memory.
    eOwnMemory,
    /// Like vfork(): the caller waits until the program runs, and the cost does not grow with the
    /// caller's memory. Cannot be combined with mHook or mDetached.
    eSharedMemory,
};

/// A child process and its program. Texts, arrays and descriptors belong to the caller and are
/// valid until the start has returned. The child inherits everything else from the caller.
struct ChildSettings {
    const char* const* mArguments = nullptr;  ///< ends with a null; the first is the program's path
    char* const* mEnvironment = environ;      ///< ends with a null
    Birth mBirth = Birth::eOwnMemory;
    int mStreams[3] = {-1, -1, -1};  ///< descriptors that become standard input, output and error
    bool mFillStreams = false;       ///< open /dev/null where the caller has no standard stream
    int mKept[2] = {-1, -1};         ///< descriptors that stay open under their numbers
    int mNice = 0;                   ///< increment for nice(); a failure is ignored
    /// Runs the program detached (see detachChild()), with no other descriptor and no blocked,
    /// handled or ignored signal.
    bool mDetached = false;
    void (*mHook)(void*) = nullptr;  ///< called in the child just before execve()
    void* mHookArgument = nullptr;
    const char* mFailureText = nullptr;  ///< the child's perror text if execve() fails
    int mFailureStatus = 127;            ///< the child's exit status if execve() fails
    /// Receives the errno of a failed execve(); in memory shared with the caller.
    int* mpError = nullptr;
};

/// The signals of the thread that starts a child, saved while that thread blocks all of them.
struct ChildSignals {
    sigset_t mMask;            ///< mask for the program
    unsigned mDefaultSignals;  ///< interruptsNotIgnored(): get the default action even if they are
                               ///< ignored now
};

/// Executes the program of the settings in the child. Returns only on failure, with the status for
/// the child's exit.
int becomeProgram(const ChildSettings& settings, const ChildSignals& signals);

/// Returns true if a program that this process executes inherits the descriptor. A close-on-exec
/// descriptor with a standard stream's number is one of the caller's own files, and is not
/// inherited.
bool passedOn(int descriptor);

/// Opens /dev/null on each of descriptors 0, 1 and 2 that the program would find closed, so that
/// the first file it opens does not become its standard error.
void fillStandardStreams();

/// Closes this descriptor and all higher ones.
void closeDescriptorsFrom(int first);

/// perror() without stdio, in one write(), so that the lines of several children do not mix.
void reportInChild(const char* text);

/// Sets every signal to its default action and unblocks all of them.
void resetSignals();

/// Continues in a detached process: a second child in its own session, in the root directory, with
/// /dev/null as its standard streams. The first child exits with status 0. Returns false if a step
/// fails, or if /dev/null is not the null device.
bool detachChild();

}  // namespace base

#endif
