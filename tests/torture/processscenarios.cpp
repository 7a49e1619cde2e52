// SPDX-License-Identifier: MIT
//
// Commands of an application, and the maintenance utilities.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "System/KestrovaPOpen.h"
#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/sysSuperUserUtils.h"
#include "System/system.h"
#include "tests/support/failingcalls.h"
#include "tests/torture/scenario.h"
#include "tests/unit/System/maintenance.h"

namespace torture {

namespace {

using failingcalls::Exempt;

std::string readToEnd(int descriptor) {
    std::string text;
    char buffer[256];
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

enum class Command { ePipes, eFormatted, eStream, eStreamFormatted, eKilled, ePoll };

class CommandCase : public Case {
public:
    explicit CommandCase(Command command) : mCommand(command) {}

    void act() override {
        switch (mCommand) {
            case Command::ePipes:
                mChild = kestrova_popen3(&mIn, &mOut, &mErr, "cat; echo err >&2; exit 3");
                break;
            case Command::eFormatted:
                mChild = kestrova_vpopen3(nullptr, &mOut, nullptr, "echo %s; exit %d", "out", 3);
                break;
            case Command::eStream:
                mChild = kestrova_popen_fout(mpStream, "echo out; exit 3");
                break;
            case Command::eStreamFormatted:
                mChild = kestrova_popen_fout_fmt(mpStream, "echo %s; exit %d", "out", 3);
                break;
            case Command::eKilled:
                mChild = kestrova_popen3(&mIn, nullptr, nullptr, "kill -9 $$; cat");
                break;
            case Command::ePoll:
                mChild = kestrova_popen3(&mIn, &mOut, nullptr, "read line; exit 3");
                if (mChild > 0) {
                    mPolled = kestrova_pstatus(mChild, mStatus, false);
                }
                break;
        }
        {
            const Exempt exempt;
            use();
        }
        if (mChild > 0) {
            mState = kestrova_pstatus(mChild, mStatus, true);
        }
    }

    void settle() override {
        for (const int end : {mIn, mOut, mErr}) {
            if (end >= 0) {
                (void)::close(end);
            }
        }
        mIn = mOut = mErr = -1;
        if (mpStream != nullptr) {
            (void)std::fclose(mpStream);
            mpStream = nullptr;
        }
        // An application whose wait failed waits again.
        while (mChild > 0 && mState != eCsExited && mState != eCsKilled) {
            const pid_t waited = ::waitpid(mChild, nullptr, 0);
            if (waited == mChild || errno != EINTR) {
                break;
            }
        }
    }

    int descriptorsKept(const Verdict& verdict) const override {
        // Without a stream the descriptor stays open, so that the child does not get SIGPIPE.
        const bool stream = mCommand == Command::eStream || mCommand == Command::eStreamFormatted;
        const bool noStream =
            verdict.failedIn(Function::fdopen) || verdict.mPlan.mKind == Kind::eAllocation;
        return stream && noStream ? 1 : 0;
    }

    void check(Verdict& verdict) override {
        if (verdict.failedIn(Function::vsnprintf)) {
            verdict.expect(mChild < 0 && !verdict.said({"out"}), "half a command has run");
        } else if (verdict.mustSucceed() && !verdict.failedIn(Function::waitpid)) {
            verdict.expect(mChild > 0, "no child without a reason");
        }
        if (verdict.returned() && mChild < 0 &&
            (mCommand == Command::eStream || mCommand == Command::eStreamFormatted) &&
            !verdict.failedIn(Function::fdopen) && !verdict.failedIn(Function::kill)) {
            verdict.expect(mFoundStream == nullptr, "a stream without a child");
        }
        if (mState == eCsExited) {
            verdict.expect(mStatus == 3 || verdict.mFired, "a wrong status");
        }
        if (verdict.mustSucceed() && verdict.returned() && mChild > 0 &&
            !verdict.failedIn(Function::waitpid)) {
            checkOutput(verdict);
        }
        int status = 0;
        int out = -1;
        const int next = kestrova_popen3(nullptr, &out, nullptr, "echo next");
        verdict.expect(next > 0 && readToEnd(out) == "next\n" &&
                           kestrova_pstatus(next, status, true) == eCsExited && status == 0,
                       "the next command fails");
        (void)::close(out);
    }

private:
    /// Uses the child as an application does: writes, reads and closes.
    void use() {
        if (mChild <= 0) {
            return;
        }
        if (mIn >= 0) {
            (void)!::write(mIn, "in\n", mCommand == Command::eKilled ? 0 : 3);
            (void)::close(mIn);
            mIn = -1;
        }
        mFoundStream = mpStream;
        if (mpStream != nullptr) {
            char line[64] = {};
            mText = std::fgets(line, sizeof(line), mpStream) != nullptr ? line : "";
            (void)std::fclose(mpStream);
            mpStream = nullptr;
        }
        for (int* const end : {&mOut, &mErr}) {
            if (*end >= 0) {
                mText += readToEnd(*end);
                (void)::close(*end);
                *end = -1;
            }
        }
    }

    void checkOutput(Verdict& verdict) {
        const char* const wanted = mCommand == Command::ePipes    ? "in\nerr\n"
                                   : mCommand == Command::eKilled ? ""
                                   : mCommand == Command::ePoll   ? ""
                                                                  : "out\n";
        verdict.expect(mText == wanted, "a wrong output: " + mText);
        if (mCommand == Command::eKilled) {
            verdict.expect(mState == eCsKilled && mStatus == 9, "not killed");
        } else {
            verdict.expect(mState == eCsExited, "not exited");
        }
        verdict.expect(mCommand != Command::ePoll || mPolled == eCsRunning, "not running");
    }

    Command mCommand;
    int mIn = -1;
    int mOut = -1;
    int mErr = -1;
    std::FILE* mpStream = nullptr;
    const std::FILE* mFoundStream = nullptr;
    int mChild = -1;
    int mState = -1;
    int mPolled = -1;
    int mStatus = -1;
    std::string mText;
};

enum class Service {
    eProduction,
    eProductionAlready,
    eSerial,
    eGetty,
    eGettyNone,
    eRestartLog,
    eRestartRemoteLog,
    eGetAddress,
    eStoreAddress,
    eClearAddress,
};

constexpr unsigned kAddress = 0x0a000001U;

class ServiceCase : public Case {
public:
    explicit ServiceCase(Service service) : mService(service) {}

    void prepare(World& world) override {
        tests::Sandbox& box = world.box();
        for (const char* const node : {"/dev/tty/1", "/dev/tts/0", "/dev/tts/1"}) {
            tests::writeFile(node, "");
        }
        if (mService != Service::eProductionAlready) {
            tests::writeFile("/settings/noptest", "");
        }
        box.allow(tests::Role(tests::gettyOn("/dev/tts/0")));
        box.allow(tests::Role({"killall", "syslogd"}));
        box.allow(tests::Role({"/sbin/syslogd", "-C"}));
        box.allow(tests::Role({"/sbin/syslogd", "-C", "-R", "10.0.0.1"}));
        const Variables vars = {{"a", "1"}, {"syslog", "10.0.0.1"}};
        world.makeSoftware("ro", environmentImage(vars), "");
        SystemMinimalInit();
        mpUtils = getSystem()->mpSuperUserUtils;
    }

    void act() override {
        switch (mService) {
            case Service::eProduction:
                mResult = mpUtils->ResetToProduction() == 0;
                break;
            case Service::eProductionAlready:
                mResult = mpUtils->ResetToProduction() == -1;
                break;
            case Service::eSerial:
                mResult = mpUtils->GetNumSerial() == 1;
                break;
            case Service::eGetty:
                mResult = mpUtils->SpawnGetty(0) > 0;
                break;
            case Service::eGettyNone:
                mResult = mpUtils->SpawnGetty(7) == -1;
                break;
            case Service::eRestartLog:
                mpUtils->RestartRemoteLog(0);
                mResult = true;
                break;
            case Service::eRestartRemoteLog:
                mpUtils->RestartRemoteLog(kAddress);
                mResult = true;
                break;
            case Service::eGetAddress:
                mResult = mpUtils->GetRemoteLogIP() == kAddress;
                break;
            case Service::eStoreAddress:
                mResult = mpUtils->StoreRemoteLogIP(0x0a000002U) != 0;
                break;
            case Service::eClearAddress:
                mResult = mpUtils->StoreRemoteLogIP(0) != 0;
                break;
        }
    }

    void check(Verdict& verdict) override {
        verdict.expect(!verdict.mustSucceed() || mResult, "the operation failed without a reason");
        const bool marker = ::access("/settings/noptest", F_OK) == 0;
        if (mService == Service::eProduction && verdict.returned()) {
            verdict.expect(mResult == !marker, "a wrong result");
        }
        verdict.expect(verdict.mWorld.softwareState() == "ro" || verdict.failedIn(Function::mount),
                       "the mount state is lost");
        checkAddress(verdict);
        checkNext(verdict);
        SystemTerm();
    }

private:
    void checkAddress(Verdict& verdict) {
        const std::optional<Variables> now = verdict.mWorld.environment();
        verdict.expect(now.has_value(), "the variables are lost");
        if (!now.has_value()) {
            return;
        }
        const auto found = now->find("syslog");
        const std::string stored = found != now->end() ? found->second : "";
        if (mService == Service::eStoreAddress && mResult && verdict.returned()) {
            verdict.expect(stored == "10.0.0.2", "stored and not there");
        } else if (mService == Service::eClearAddress && mResult && verdict.returned()) {
            verdict.expect(stored.empty(), "cleared and still there");
        } else if (mService < Service::eStoreAddress) {
            verdict.expect(stored == "10.0.0.1", "the address has changed");
        }
    }

    void checkNext(Verdict& verdict) {
        verdict.expect(mpUtils->GetNumSerial() == 1, "the next count fails");
        verdict.expect(mpUtils->StoreRemoteLogIP(0x0a000003U) == 1, "the next address fails");
        verdict.expect(mpUtils->GetRemoteLogIP() == 0x0a000003U, "the next address is lost");
    }

    Service mService;
    sysSuperUserUtils* mpUtils = nullptr;
    bool mResult = false;
};

}  // namespace

void addProcessScenarios(Scenarios& scenarios) {
    const struct {
        const char* mName;
        Command mCommand;
    } commands[] = {{"command-pipes", Command::ePipes},
                    {"command-formatted", Command::eFormatted},
                    {"command-stream", Command::eStream},
                    {"command-stream-formatted", Command::eStreamFormatted},
                    {"command-killed", Command::eKilled},
                    {"command-polled", Command::ePoll}};
    for (const auto& each : commands) {
        scenarios.push_back(scenario<CommandCase>(each.mName, each.mCommand));
    }
    const struct {
        const char* mName;
        Service mService;
    } services[] = {{"service-production", Service::eProduction},
                    {"service-production.already", Service::eProductionAlready},
                    {"service-serial", Service::eSerial},
                    {"service-getty", Service::eGetty},
                    {"service-getty.none", Service::eGettyNone},
                    {"service-log", Service::eRestartLog},
                    {"service-log.remote", Service::eRestartRemoteLog},
                    {"service-address-get", Service::eGetAddress},
                    {"service-address-store", Service::eStoreAddress},
                    {"service-address-clear", Service::eClearAddress}};
    for (const auto& each : services) {
        scenarios.push_back(scenario<ServiceCase>(each.mName, each.mService));
    }
}

}  // namespace torture
