// SPDX-License-Identifier: MIT
#include "app/session.h"

#include <unistd.h>

#include <utility>

#include "System/drivemanager/drivemanager.h"
#include "System/system.h"
#include "app/commands/commands.h"
#include "app/commands/drive/drivedescription.h"
#include "app/commands/vars/heldvariables.h"
#include "app/ui/humantext.h"
#include "app/ui/progressview.h"
#include "base/outputlevel.h"

namespace app {

RunningSystem::RunningSystem() {
    SystemMinimalInit();
}

// SystemTerm() does not free a drive that was added to a minimal system.
RunningSystem::~RunningSystem() {
    getSystem()->termDVR();
    SystemTerm();
}

void RunningSystem::bringUpDrive() {
    getSystem()->initDVR();
}

Session::Session(StandardStreams& streams, const Invocation& first)
    : mStreams(streams),
      mOptions(first.mOptions),
      mShell(first.mCommand->has(eRunsCommands)),
      mReadsCommands(mShell && !first.mOptions.mScript),
      mInteractive(mReadsCommands && streams.canAsk()),
      mReader(streams.input()) {
    if (mInteractive && streams.canRedrawError()) {
        mEditor = LineEditor::create(streams.input(), mInterrupts);
    }
}

sysDVRDrive* Session::drive() const {
    const sysDriveManager* const manager = getSystem()->mpDriveManager;
    return manager != nullptr ? manager->getDVRDrive() : nullptr;
}

Result Session::useDrive(const Invocation& invocation, sysDVRDrive*& drive) {
    Result result = claimDrive(invocation);
    if (result.good() && this->drive() == nullptr) {
        DriveIdentity identity;
        result = identifyDrive(identity);
        if (result.good()) {
            getSystem()->termDVR();  // frees the drive manager of an earlier attempt that found no
                                     // drive
            mSystem.bringUpDrive();
            result = this->drive() != nullptr ? Result() : Result::failed(noDriveReason());
        }
    }
    if (result.good()) {
        drive = this->drive();
    }
    return result;
}

std::string Session::holderName(const Invocation& invocation) const {
    return std::string("kestrova ") + (mShell ? "shell" : invocation.mCommand->mName);
}

unsigned Session::waitLimit(const Invocation& invocation) const {
    return invocation.mOptions.mWait.value_or(mOptions.mWait.value_or(0));
}

ExitStatus Session::run(const Invocation& invocation) {
    mQuiet = mOptions.mJson || invocation.mOptions.mJson;
    const Result result = perform(invocation);
    print(invocation, result);
    return result.mStatus;
}

int Session::inputForChildren() const {
    const bool readsCommands = mReadsCommands && !mInteractive;
    return readsCommands ? STDIN_FILENO : mStreams.input();
}

ExitStatus Session::close() {
    ExitStatus status = eDone;
    if (mWork != nullptr) {
        mInteractive = false;
        status = runNow(kDriveWatchCommand);
    }
    // A single 'drive start' leaves the drive started for the programs that use it.
    const bool started = drive() != nullptr && statusOf(*drive()) == sysDVRDrive::eStStarted;
    if (mShell && started) {
        complain("the drive is still started at the end of the shell: stopping it");
        const ExitStatus stopped = runNow(kDriveStopCommand);
        status = status != eDone ? status : stopped;
    }
    return status;
}

/// Runs a drive command that the user has not typed.
ExitStatus Session::runNow(const Command& command) {
    Invocation invocation;
    invocation.mCommand = &command;
    return run(invocation);
}

Result Session::perform(const Invocation& invocation) {
    const Command& command = *invocation.mCommand;
    if (mWork != nullptr && !command.has(eRunsBesideWork)) {
        if (!mWork->ended()) {
            return Result::failed(std::string("the drive is busy: the ") + mWork->name() +
                                  " goes on; 'drive watch' follows it");
        }
        reportEndedWork();
    }
    if (command.has(eNeedsDrive) && mOptions.mMinimal) {
        return Result::failed("--minimal leaves the drive out; start without it");
    }
    HeldVariables variables;
    Result result = variables.take(*this, invocation);
    if (result.good()) {
        result = command.mRun(*this, invocation);
    }
    if (mWork == nullptr && drive() != nullptr) {
        publish({statusName(statusOf(*drive())), 100});
    }
    return result;
}

/// Reports work that has ended before the next command while no command followed it.
void Session::reportEndedWork() {
    const std::unique_ptr<Work> work = std::move(mWork);
    const Result result = work->finish();
    complain(std::string("the ") + work->name() +
             " has ended: " + (result.good() ? "done" : result.mError));
}

void Session::print(const Invocation& invocation, const Result& result) {
    const std::string name = invocation.mCommand->mName;
    if (!result.mError.empty()) {
        printError(name + ": " + result.mError, mQuiet);
    }
    if (!mQuiet) {
        mStreams.write(result.mText);
        return;
    }
    Json document;
    document.add("command", name);
    if (!result.mError.empty()) {
        document.add("error", result.mError);
    }
    mStreams.write(document.add(result.mData).text() + "\n");
}

LineInput::Outcome Session::readLine(std::string& line) {
    return mReader.read(mInterrupts, line);
}

LineInput::Outcome Session::readCommand(const char* prompt, std::string& line) {
    if (mEditor == nullptr) {
        writeError(prompt);
        return readLine(line);
    }
    switch (mEditor->read(prompt, line)) {
        case LineEditor::eInterrupted:
            return LineInput::eInterrupted;
        case LineEditor::eEnd:
            return LineInput::eEnd;
        default:
            return line.size() > LineInput::kLongest ? LineInput::eTooLong : LineInput::eLine;
    }
}

bool Session::confirm(const std::string& question) {
    writeError(question + " [y/N] ");
    std::string answer;
    const LineInput::Outcome outcome = readLine(answer);
    if (outcome != LineInput::eLine) {
        writeError("\n");
        return false;
    }
    answer = trimmed(answer);
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes" || answer == "YES";
}

bool Session::interrupted() {
    // At a terminal a pending signal belongs to the prompt.
    mInterrupted = mInterrupted || (!mInteractive && mInterrupts.take());
    return mInterrupted || mInterrupts.ending() != 0;
}

Result Session::keep(std::unique_ptr<Work> work, const Invocation& invocation) {
    mWork = publishedWork(std::move(work), mClaim);
    if (!invocation.mOptions.mNoWait) {
        return follow();
    }
    Result result;
    const Progress progress = mWork->progress();
    result.mText = std::string("The ") + mWork->name() + " runs; 'drive watch' follows it.\n";
    result.mData.add("status", progress.mState).add("progress", progress.mPercent);
    return result;
}

Result Session::follow() {
    constexpr int interval = 100;  // milliseconds
    const std::string name = mWork->name();
    ProgressView view(mStreams, name, mQuiet, kestrova_debug_output_level > 0);
    while (!mWork->ended()) {
        view.show(mWork->progress());
        if (!mInterrupts.wait(interval)) {
            continue;
        }
        view.end();
        if (mInteractive && mInterrupts.ending() == 0) {
            return Result::failed("the " + name + " goes on; 'drive watch' follows it");
        }
        mInterrupted = true;
        complain("the " + name + " can't be stopped, waiting for its end");
    }
    view.show(mWork->progress());
    view.end();
    const std::unique_ptr<Work> work = std::move(mWork);
    Result result = work->finish();
    result.mData.add("changes", view.changes());
    return result;
}

void printMisuse(StandardStreams& streams, bool json, const std::string& error) {
    printError(error, json);
    if (json) {
        streams.write(Json().add("error", error).text() + "\n");
    }
}

}  // namespace app
