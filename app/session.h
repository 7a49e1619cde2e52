// SPDX-License-Identifier: MIT
//
// The system held up, and the commands that run on it one after the other.
#ifndef KESTROVA_APP_SESSION_H
#define KESTROVA_APP_SESSION_H

#include <memory>
#include <string>
#include <utility>

#include "System/drivemanager/dvrdrive.h"
#include "app/cli/line.h"
#include "app/cli/options.h"
#include "app/cli/result.h"
#include "app/commands/drive/driveclaim.h"
#include "app/ui/interrupts.h"
#include "app/ui/lineeditor.h"
#include "app/ui/standardstreams.h"
#include "app/work.h"

namespace app {

/// Brings the system up without drive handling, adds that on request, and takes all of it down.
class System {
public:
    System();
    /// Waits for a worker of the drive. Mounted file systems stay mounted.
    ~System();
    System(const System&) = delete;
    System& operator=(const System&) = delete;

    /// Detects the recording drive, which unmounts its file systems. Call it once.
    void bringUpDrive();
};

/// Runs commands. The system is up for its whole life, the drive from the first command that needs
/// it.
class Session {
public:
    /// Options of the whole session.
    struct Setup {
        bool mMinimal;  ///< refuse every command of the drive
        bool mJson;
        bool mInteractive;    ///< a shell at a terminal
        bool mShell;          ///< runs several commands
        bool mReadsCommands;  ///< from standard input
        unsigned mWait;       ///< seconds that each command waits for a lock
    };

    Session(StandardStreams& streams, const Setup& setup);

    /// Runs a parsed command and prints its result.
    ExitStatus run(const Invocation& invocation);

    /// To be called at the end: waits for work that still runs, as 'drive watch' does. A shell
    /// stops the drive that it has started.
    ExitStatus close();

    /// Reads a line of the input; the answer to a question comes from where the commands come from.
    LineReader::Outcome readLine(std::string& line);
    /// The same for the shell, with a prompt; with line editing and history where that can be had.
    LineReader::Outcome readCommand(const char* prompt, std::string& line);
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
    /// for its detection, which unmounts its file systems. Returns null, with the reason in
    /// `refusal`, if that fails.
    sysDVRDrive* useDrive(const Invocation& invocation, Result& refusal);

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

    /// The running command prints JSON.
    bool quiet() const { return mQuiet; }

    /// True when what was to follow is not wanted: Ctrl-C came while work was waited for, or
    /// between two commands of a script, or the process is to end.
    bool interrupted();

private:
    Result perform(const Invocation& invocation);
    Result performHeld(const Invocation& invocation);
    ExitStatus runNamed(const char* name);
    void reportEndedWork();
    void print(const Invocation& invocation, const Result& result);

    StandardStreams& mStreams;
    Setup mSetup;
    DriveClaim mClaim;  // released after the system is down
    System mSystem;
    // After the system is up, whose start may be broken off, and before any thread.
    Interrupts mInterrupts;
    LineReader mReader;
    std::unique_ptr<LineEditor> mEditor;  // null where lines cannot be edited
    std::unique_ptr<Work> mWork;          // goes first: it uses the drive
    bool mQuiet = false;                  // the running command prints JSON
    bool mInterrupted = false;
};

/// Prints why words could not be run, also as JSON.
void printMisuse(StandardStreams& streams, bool json, const std::string& error);

}  // namespace app

#endif
