// SPDX-License-Identifier: MIT
//
// Keeps the system started, and runs commands on it one after another.
#ifndef KESTROVA_APP_SESSION_H
#define KESTROVA_APP_SESSION_H

#include <memory>
#include <string>
#include <utility>

#include "System/drivemanager/dvrdrive.h"
#include "app/cli/command.h"
#include "app/cli/result.h"
#include "app/commands/drive/driveclaim.h"
#include "app/ui/interrupts.h"
#include "app/ui/lineeditor.h"
#include "app/ui/lineinput.h"
#include "app/ui/standardstreams.h"
#include "app/work.h"

namespace app {

/// Starts the system without drive handling, adds the drive on request, and stops everything.
class RunningSystem {
public:
    RunningSystem();
    /// Waits for a worker of the drive. Mounted file systems stay mounted.
    ~RunningSystem();
    RunningSystem(const RunningSystem&) = delete;
    RunningSystem& operator=(const RunningSystem&) = delete;

    /// Detects the recording drive, which unmounts its file systems. Call it once.
    void bringUpDrive();
};

/// Runs commands. The system is started for the session's whole lifetime, the drive from the first
/// command that needs it.
class Session {
public:
    /// `first` is the command that the process was started with, and must outlive the session. The
    /// shell makes it a session of several commands.
    Session(StandardStreams& streams, const Invocation& first);

    /// Runs a parsed command and prints its result.
    ExitStatus run(const Invocation& invocation);

    /// Call it at the end: waits for running work, like 'drive watch'. A shell stops the drive that
    /// it has started.
    ExitStatus close();

    /// Reads a line of the input. Answers to questions come from the same input as commands.
    LineInput::Outcome readLine(std::string& line);
    /// Reads a command of the shell, with a prompt, and with line editing and history if available.
    LineInput::Outcome readCommand(const char* prompt, std::string& line);
    /// Asks a question with the answers yes and no.
    bool confirm(const std::string& question);

    // For commands that follow work themselves.
    StandardStreams& streams() const { return mStreams; }
    const Interrupts& interrupts() const { return mInterrupts; }

    /// Returns the recording drive if an earlier command of this session has started it; otherwise
    /// null.
    sysDVRDrive* drive() const;
    /// Takes the recording drive's lock, unless this session already holds it. See takeLock().
    Result claimDrive(const Invocation& invocation) { return mClaim.take(*this, invocation); }
    /// Returns whether this session holds the drive's lock.
    bool claimsDrive() const { return mClaim.held(); }
    /// Publishes the state of the drive for other processes, while this session holds its lock.
    void publish(const Progress& progress) { mClaim.publish(progress); }
    /// Takes the drive's lock and initialises the recording drive, unless that has been done.
    /// Blocks while the drive is detected, which unmounts its file systems. Sets `drive` on success
    /// only.
    Result useDrive(const Invocation& invocation, sysDVRDrive*& drive);

    /// Wraps work so that other processes see its progress while it runs.
    std::unique_ptr<Work> published(std::unique_ptr<Work> work) {
        return publishedWork(std::move(work), mClaim);
    }
    /// Returns the descriptor for the standard input of a child: this process's own, or an empty
    /// one if a shell reads its commands from that.
    int inputForChildren() const;

    /// Takes over running work. Follows it until it has ended and returns its result; with
    /// --no-wait, or after Ctrl-C at an interactive shell, returns while it continues.
    Result keep(std::unique_ptr<Work> work, const Invocation& invocation);
    /// Follows the running work; there must be some.
    Result follow();
    bool working() const { return mWork != nullptr; }

    /// Returns the name that other processes see as the holder of a command's locks: "kestrova vars
    /// set", or "kestrova shell" for all commands of a shell.
    std::string holderName(const Invocation& invocation) const;
    /// Returns how many seconds a command waits for a lock: its own --wait, or the shell's.
    unsigned waitLimit(const Invocation& invocation) const;

    /// The whole session prints JSON.
    bool json() const { return mOptions.mJson; }
    /// The running command prints JSON.
    bool quiet() const { return mQuiet; }
    /// The session is a shell at a terminal.
    bool interactive() const { return mInteractive; }

    /// Returns whether the following commands must not run: Ctrl-C arrived while work was being
    /// awaited or between two commands of a script, or the process must exit.
    bool interrupted();

private:
    Result perform(const Invocation& invocation);
    ExitStatus runNow(const Command& command);
    void reportEndedWork();
    void print(const Invocation& invocation, const Result& result);

    StandardStreams& mStreams;
    const Options& mOptions;  // of the whole session
    bool mShell;              // runs several commands
    bool mReadsCommands;      // from standard input
    bool mInteractive;
    DriveClaim mClaim;  // released after the system has stopped
    RunningSystem mSystem;
    // Created after the system has started, so that a signal can end the start, and before any
    // thread.
    Interrupts mInterrupts;
    LineInput mReader;
    std::unique_ptr<LineEditor> mEditor;  // null if line editing is not available
    std::unique_ptr<Work> mWork;          // destroyed first, because it uses the drive
    bool mQuiet = false;                  // the running command prints JSON
    bool mInterrupted = false;
};

/// Prints why words could not be run, as text or as JSON.
void printMisuse(StandardStreams& streams, bool json, const std::string& error);

}  // namespace app

#endif
