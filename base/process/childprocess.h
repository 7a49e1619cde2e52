// SPDX-License-Identifier: MIT
//
// What a child does between its start and its program: only what is safe in the child of a threaded
// process, and in one that shares the caller's memory. launcher.h starts it.
#ifndef KESTROVA_BASE_PROCESS_CHILDPROCESS_H
#define KESTROVA_BASE_PROCESS_CHILDPROCESS_H

#include <unistd.h>

#include <csignal>

namespace base {

/// How a child comes into being.
enum class Birth {
    /// By fork(): the child has its own memory, so it may run any async-signal-safe code for any
    /// time while the caller goes on. The cost grows with the caller's memory.
    eOwnMemory,
    /// Like vfork(): the caller waits until the program runs, and the cost does not grow with the
    /// caller's memory. Not with mHook or mDetached.
    eSharedMemory,
};

/// A child process and its program. Texts, arrays and descriptors belong to the caller and are
/// valid until the start has returned. What is not set is the caller's own.
struct ChildSettings {
    const char* const* mArguments = nullptr;  ///< ends with a null; the first is the program's path
    char* const* mEnvironment = environ;      ///< ends with a null
    Birth mBirth = Birth::eOwnMemory;
    int mStreams[3] = {-1, -1, -1};  ///< descriptors that become standard input, output and error
    bool mFillStreams = false;       ///< open /dev/null where the caller has no standard stream
    int mKept[2] = {-1, -1};         ///< descriptors that stay open under their numbers
    int mNice = 0;                   ///< what nice() adds; the child goes on if it cannot
    /// Run the program detached (see detachChild()), with no other descriptor and no blocked,
    /// handled or ignored signal.
    bool mDetached = false;
    void (*mHook)(void*) = nullptr;  ///< called in the child just before its program is executed
    void* mHookArgument = nullptr;
    const char* mFailureText = nullptr;  ///< the child's perror text when it cannot execute
    int mFailureStatus = 127;            ///< the child's exit status then
    /// Where the child stores the errno then; in memory that it shares with the caller.
    int* mpError = nullptr;
};

/// The signals of the thread that starts a child, while it has blocked all of them.
struct ChildSignals {
    sigset_t mMask;            ///< mask for the program
    unsigned mDefaultSignals;  ///< of interruptsNotIgnored(): default action even if ignored now
};

/// Executes the program of the settings in the child. Returns only when that fails: the exit status
/// to end with.
int becomeProgram(const ChildSettings& settings, const ChildSignals& signals);

/// True when a program that this process executes has the descriptor open. False for a
/// close-on-exec descriptor: a file of the caller's own that has been given the number.
bool passedOn(int descriptor);

/// Opens /dev/null on each of descriptors 0, 1 and 2 that the program would find closed, so that
/// the first file it opens does not become its standard error.
void fillStandardStreams();

/// Closes all descriptors from this one upward.
void closeDescriptorsFrom(int first);

/// perror without stdio, in one write, so that the lines of several children do not mix.
void reportInChild(const char* text);

/// Gives every signal its default action and unblocks all.
void resetSignals();

/// Continues in a detached process: a second child in its own session, in the root directory, with
/// /dev/null as its standard streams; the first child exits with status 0. Returns false when a
/// step fails, and when /dev/null is not the null device.
bool detachChild();

}  // namespace base

#endif
