// SPDX-License-Identifier: MIT
#include "app/session.h"

#include <unistd.h>

#include <utility>

#include "System/drivemanager/drivemanager.h"
#include "System/system.h"
#include "app/drivedescription.h"
#include "app/progressview.h"
#include "app/text.h"
#include "base/outputlevel.h"

namespace app {

System::System(bool minimal) {
    if (minimal) {
        SystemMinimalInit();
    } else {
        SystemInit();
    }
}

System::~System() {
    SystemTerm();
}

Session::Session(StandardStreams& streams, const Setup& setup)
    : mStreams(streams), mSetup(setup), mSystem(setup.mMinimal), mReader(streams.input()) {}

sysDVRDrive* Session::drive() const {
    const sysDriveManager* const manager = getSystem()->mpDriveManager;
    return manager != nullptr ? manager->getDVRDrive() : nullptr;
}

ExitStatus Session::run(const Invocation& invocation) {
    mQuiet = mSetup.mJson || invocation.mOptions.mJson;
    const Result result = perform(invocation);
    print(invocation, result);
    return result.mStatus;
}

ExitStatus Session::close() {
    if (mWork == nullptr) {
        return eDone;
    }
    mSetup.mInteractive = false;
    Invocation watch;
    std::size_t used = 0;
    watch.mCommand = findCommand({"drive", "watch"}, used);
    return run(watch);
}

Result Session::perform(const Invocation& invocation) {
    const Command& command = *invocation.mCommand;
    if (mWork != nullptr && !command.mRunsBesideWork) {
        if (!mWork->ended()) {
            return Result::failed(std::string("the drive is busy: the ") + mWork->name() +
                                  " goes on; 'drive watch' follows it");
        }
        reportEndedWork();
    }
    if (command.mNeedsDrive && mSetup.mMinimal) {
        return Result::failed("--minimal leaves the drive out; start without it");
    }
    if (command.mNeedsDrive && drive() == nullptr) {
        return Result::failed(noDriveReason());
    }
    return command.mRun(*this, invocation);
}

/// Work that nobody watched has ended before the next command: tells how, apart from that command.
void Session::reportEndedWork() {
    const std::unique_ptr<Work> work = std::move(mWork);
    const Result result = work->finish();
    complain(std::string("the ") + work->name() +
             " has ended: " + (result.mStatus == eDone ? "done" : result.mError));
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
    JsonObject document;
    document.add("command", name);
    if (!result.mError.empty()) {
        document.add("error", result.mError);
    }
    mStreams.write(document.add(result.mData).text() + "\n");
}

LineReader::Outcome Session::readLine(std::string& line) {
    return mReader.read(mInterrupts, line);
}

bool Session::confirm(const std::string& question) {
    writeError(question + " [y/N] ");
    std::string answer;
    const LineReader::Outcome outcome = readLine(answer);
    if (outcome != LineReader::eLine) {
        writeError("\n");
        return false;
    }
    answer = trimmed(answer);
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes" || answer == "YES";
}

Result Session::keep(std::unique_ptr<Work> work, const Invocation& invocation) {
    mWork = std::move(work);
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
        if (mSetup.mInteractive) {
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
        streams.write(JsonObject().add("error", error).text() + "\n");
    }
}

}  // namespace app
