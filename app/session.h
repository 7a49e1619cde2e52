// SPDX-License-Identifier: MIT
//
// The system held up, and the commands that run on it one after the other.
#ifndef KESTROVA_APP_SESSION_H
#define KESTROVA_APP_SESSION_H

#include <memory>
#include <string>

#include "System/drivemanager/dvrdrive.h"
#include "app/interrupts.h"
#include "app/line.h"
#include "app/options.h"
#include "app/result.h"
#include "app/standardstreams.h"
#include "app/work.h"

namespace app {

/// Brings the system up and takes it down again; for commands that do not need the drive, and with
/// --minimal, without drive handling.
class System {
public:
    explicit System(bool minimal);
    ~System();
    System(const System&) = delete;
    System& operator=(const System&) = delete;
};

/// Runs commands. The system is up for its whole life.
class Session {
public:
    /// How much of the system, and who is there.
    struct Setup {
        bool mMinimal;
        bool mJson;
        bool mInteractive;  ///< a shell at a terminal
    };

    Session(StandardStreams& streams, const Setup& setup);

    /// Runs a parsed command and prints its result.
    ExitStatus run(const Invocation& invocation);

    /// To be called at the end: waits for work that still runs, as 'drive watch' does.
    ExitStatus close();

    /// Reads a line of the input; the answer to a question comes from where the commands come from.
    LineReader::Outcome readLine(std::string& line);
    /// Asks a question that is answered with yes or no.
    bool confirm(const std::string& question);

    // For commands that follow something themselves.
    StandardStreams& streams() const { return mStreams; }
    const Interrupts& interrupts() const { return mInterrupts; }

    /// The recording drive; null when there is none or in minimal mode.
    sysDVRDrive* drive() const;

    /// Keeps work that has been started. Follows it until it has ended and returns its result;
    /// with --no-wait, or after Ctrl-C at an interactive shell, returns while it goes on.
    Result keep(std::unique_ptr<Work> work, const Invocation& invocation);
    /// Follows the work that runs; there must be some.
    Result follow();
    bool working() const { return mWork != nullptr; }

    /// The running command prints JSON.
    bool quiet() const { return mQuiet; }

    /// True when Ctrl-C came while work was waited for: what was to follow is not wanted.
    bool interrupted() const { return mInterrupted; }

private:
    Result perform(const Invocation& invocation);
    void reportEndedWork();
    void print(const Invocation& invocation, const Result& result);

    StandardStreams& mStreams;
    Setup mSetup;
    System mSystem;
    // After the system is up, whose start may be broken off, and before any thread.
    Interrupts mInterrupts;
    LineReader mReader;
    std::unique_ptr<Work> mWork;  // goes first: it uses the drive
    bool mQuiet = false;          // the running command prints JSON
    bool mInterrupted = false;
};

/// Prints why words could not be run, also as JSON.
void printMisuse(StandardStreams& streams, bool json, const std::string& error);

}  // namespace app

#endif
