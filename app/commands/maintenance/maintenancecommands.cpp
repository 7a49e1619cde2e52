// SPDX-License-Identifier: MIT
//
// The commands of service staff: serial ports, remote log, production-test marker.
#include <arpa/inet.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/sysSuperUserUtils.h"
#include "System/system.h"
#include "app/cli/commands.h"
#include "app/cli/options.h"
#include "app/commands/maintenance/processes.h"
#include "app/commands/vars/environmentcheck.h"
#include "app/session.h"
#include "app/ui/humantext.h"
#include "app/ui/interrupts.h"

namespace app {

namespace {

constexpr char kGetty[] = "/sbin/getty";
constexpr char kSyslogd[] = "/sbin/syslogd";
constexpr char kLogDaemon[] = "syslogd";
constexpr unsigned long kLastPort = 9;

sysSuperUserUtils& utilities() {
    return *getSystem()->mpSuperUserUtils;
}

std::string addressText(unsigned address) {
    char text[INET_ADDRSTRLEN] = "";
    const in_addr binary = {htonl(address)};
    (void)::inet_ntop(AF_INET, &binary, text, sizeof(text));
    return text;
}

/// Four decimal octets, and not all of them 0, which stands for no address.
bool parseAddress(const std::string& text, unsigned& address) {
    in_addr binary = {};
    if (text.find('\0') != std::string::npos || ::inet_pton(AF_INET, text.c_str(), &binary) != 1) {
        return false;
    }
    address = ntohl(binary.s_addr);
    return address != 0;
}

/// Why there is no address: the library answers alike for none and for one that it cannot read.
Result noAddress() {
    sysBootVarsManager& variables = *getSystem()->mpBootVarsManager;
    char text[2] = "";
    if (variables.getVarS("syslog", text, sizeof(text))) {
        return Result::failed(
            "the variable 'syslog' holds no address; 'vars clear syslog' removes it");
    }
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    (void)variables.getVarList(names, values);
    if (names.empty()) {
        const EnvironmentState state = checkEnvironment();
        if (state.mKind == EnvironmentState::eUnreadable) {
            return Result::failed(state.mReason);
        }
    }
    return Result::failed("no address is stored; 'syslog set ADDRESS' stores one", eAbsent);
}

Result withAddress(unsigned address) {
    Result result;
    const std::string text = addressText(address);
    result.mData.add("address", address != 0 ? text.c_str() : nullptr);
    return result;
}

/// Reaps a child that has ended, and tells how.
std::string howItEnded(int pid) {
    int status = 0;
    if (pid == 0 || ::waitpid(pid, &status, WNOHANG) != pid) {
        return "";
    }
    return WIFSIGNALED(status) ? ", by signal " + std::to_string(WTERMSIG(status))
                               : ", with exit status " + std::to_string(WEXITSTATUS(status));
}

std::string notRestarted(unsigned address) {
    std::string command = std::string(kSyslogd) + " -C";
    if (address != 0) {
        command += " -R " + addressText(address);
    }
    const bool old = !processesNamed(kLogDaemon).empty();
    return "the log daemon did not start: '" + command + "' tells why; " +
           (old ? "the one before still runs" : "none runs now");
}

/// Looks for a tool whose failure the library does not tell.
bool missing(const char* tool, Result& result) {
    if (::access(tool, X_OK) == 0) {
        return false;
    }
    result = Result::failed(quoted(tool) + ": " + std::strerror(errno));
    return true;
}

}  // namespace

bool checkPort(const Words& arguments, std::string& error) {
    unsigned long port = 0;
    if (!parseNumber(arguments[0], kLastPort, port)) {
        error = "PORT is a number from 0 to 9, not " + quoted(arguments[0]);
    }
    return error.empty();
}

bool checkAddress(const Words& arguments, std::string& error) {
    unsigned address = 0;
    if (!parseAddress(arguments[0], address)) {
        error = "ADDRESS is four decimal octets such as 10.0.0.1, not " + quoted(arguments[0]);
    }
    return error.empty();
}

Result runSerialCount(Session& /*session*/, const Invocation& /*invocation*/) {
    const unsigned ports = utilities().GetNumSerial();
    Result result;
    result.mText = std::to_string(ports) + "\n";
    result.mData.add("ports", ports);
    return result;
}

Result runSerialLogin(Session& session, const Invocation& invocation) {
    unsigned long port = 0;
    (void)parseNumber(invocation.mArguments[0], kLastPort, port);
    Result result;
    if (missing(kGetty, result)) {
        return result;
    }
    // The library does not tell what becomes of the prompt: as a child it can be watched.
    const ParentOfDaemons scope;
    const std::vector<Process> before = processesBelow(::getpid());
    if (utilities().SpawnGetty(static_cast<int>(port)) < 0) {
        return errno == ENOENT ? Result::failed("there is no serial port " + std::to_string(port) +
                                                    "; 'serial count' counts them",
                                                eAbsent)
                               : Result::failed("no login prompt: " + rootErrorText(errno));
    }
    const Process prompt = newProcess(before, processesBelow(::getpid()));
    if (prompt.mPid == 0 || !staysAlive(prompt, session.interrupts())) {
        return Result::failed("the login prompt has ended at once" + howItEnded(prompt.mPid));
    }
    result.mData.add("port", port);
    return result;
}

Result runSyslogShow(Session& /*session*/, const Invocation& /*invocation*/) {
    const unsigned address = utilities().GetRemoteLogIP();
    if (address == 0) {
        return noAddress();
    }
    Result result = withAddress(address);
    result.mText = addressText(address) + "\n";
    return result;
}

Result runSyslogSet(Session& /*session*/, const Invocation& invocation) {
    unsigned address = 0;
    (void)parseAddress(invocation.mArguments[0], address);
    if (utilities().StoreRemoteLogIP(address) == 0) {
        return Result::failed("the address could not be stored; -v tells more");
    }
    return withAddress(address);
}

Result runSyslogClear(Session& /*session*/, const Invocation& /*invocation*/) {
    if (utilities().GetRemoteLogIP() == 0) {
        Result reason = noAddress();
        return reason.mStatus == eAbsent ? withAddress(0) : reason;
    }
    if (utilities().StoreRemoteLogIP(0) == 0) {
        return Result::failed("the address could not be removed; -v tells more");
    }
    return withAddress(0);
}

Result runSyslogApply(Session& session, const Invocation& /*invocation*/) {
    const unsigned address = utilities().GetRemoteLogIP();
    if (address == 0) {
        Result reason = noAddress();
        if (reason.mStatus != eAbsent) {
            return reason;
        }
    }
    Result result = withAddress(address);
    if (missing(kSyslogd, result)) {
        return result;
    }
    const std::vector<Process> before = processesNamed(kLogDaemon);
    {
        const InterruptibleChildren scope;  // the daemon must not inherit that SIGTERM is blocked
        utilities().RestartRemoteLog(address);
    }
    const Process daemon = newProcess(before, processesNamed(kLogDaemon));
    if (daemon.mPid == 0 || !staysAlive(daemon, session.interrupts())) {
        return Result::failed(notRestarted(address));
    }
    return result;
}

Result runProduction(Session& /*session*/, const Invocation& /*invocation*/) {
    if (utilities().ResetToProduction() == 0) {
        return {};
    }
    return Result::failed("the marker '/settings/noptest': " + rootErrorText(errno),
                          errno == ENOENT ? eAbsent : eFailed);
}

}  // namespace app
