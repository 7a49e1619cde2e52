// SPDX-License-Identifier: MIT
//
// The system held up, and the commands that run on it one after the other.
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

/// Brings the system up without drive handling, adds that on request, and takes all of it down.
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

/// Runs commands. The system is up for its whole life, the drive from the first command that needs
/// it.
class Session {
public:
    /// `first` is the command that the process was started with, and must outlive the session. The
    /// shell makes it a session of several commands.
    Session(StandardStreams& streams, const Invocation& first);

    /// Runs a parsed command and prints its result.
    ExitStatus run(const Invocation& invocation);

    /// To be called at the end: waits for work that still runs, as 'drive watch' does. A shell
    /// stops the drive that it has started.
    ExitStatus close();

    /// Reads a line of the input; the answer to a question comes from where the commands come from.
    LineInput::Outcome readLine(std::string& line);
    /// The same for the shell, with a prompt; with line editing and history where that can be had.
    LineInput::Outcome readCommand(const char* prompt, std::string& line);
    /// Asks a question that is answered with yes or no.
    bool confirm(const std::string& question);

    // For commands that follow something themselves.
    StandardStreams& streams() const { return mStreams; }
    const Interrupts& interrupts() const { return mInterrupts; }

    /// The recording drive, if an earlier command of this session has brought it up; else null.
    sysDVRDrive* drive() const;
    /// Takes the recording drive's lock, unless this session holds it already. See takeLock().
    Result claimDrive(const Invocation& invocation) { return mClaim.take(*this, invocation); }
    /// True while this session holds the drive's lock.
    bool claimsDrive() const { return mClaim.held(); }
    /// Shows other processes what happens to the drive, while this session holds its lock.
    void publish(const Progress& progress) { mClaim.publish(progress); }
    /// Takes the drive's lock and brings the recording drive up, unless that has been done. Blocks
    /// for its detection, which unmounts its file systems. `drive` is set on success only.
    Result useDrive(const Invocation& invocation, sysDVRDrive*& drive);

    /// Work whose progress other processes see while it runs.
    std::unique_ptr<Work> published(std::unique_ptr<Work> work) {
        return publishedWork(std::move(work), mClaim);
    }
    /// The descriptor that a program of the command gets as its standard input: this process's own,
    /// or an empty one where a shell reads its commands from that.
    int inputForChildren() const;

    /// Keeps work that has been started. Follows it until it has ended and returns its result;
    /// with --no-wait, or after Ctrl-C at an interactive shell, returns while it goes on.
    Result keep(std::unique_ptr<Work> work, const Invocation& invocation);
    /// Follows the work that runs; there must be some.
    Result follow();
    bool working() const { return mWork != nullptr; }

    /// What other processes see as the holder of a command's locks: "kestrova vars set", or
    /// "kestrova shell" for all commands of a shell.
    std::string holderName(const Invocation& invocation) const;
    /// Seconds that a command waits for a lock: its own --wait, or the shell's.
    unsigned waitLimit(const Invocation& invocation) const;

    /// The whole session prints JSON.
    bool json() const { return mOptions.mJson; }
    /// The running command prints JSON.
    bool quiet() const { return mQuiet; }
    /// A shell at a terminal.
    bool interactive() const { return mInteractive; }

    /// True when what was to follow is not wanted: Ctrl-C came while work was waited for, or
    /// between two commands of a script, or the process is to end.
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
    DriveClaim mClaim;  // released after the system is down
    RunningSystem mSystem;
    // After the system is up, whose start may be broken off, and before any thread.
    Interrupts mInterrupts;
    LineInput mReader;
    std::unique_ptr<LineEditor> mEditor;  // null where lines cannot be edited
    std::unique_ptr<Work> mWork;          // goes first: it uses the drive
    bool mQuiet = false;                  // the running command prints JSON
    bool mInterrupted = false;
};

/// Prints why words could not be run, also as JSON.
void printMisuse(StandardStreams& streams, bool json, const std::string& error);

}  // namespace app

#endif
