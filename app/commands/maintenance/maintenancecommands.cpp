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
#include "System/drivemanager/tools/toolcommands.h"
#include "System/sysSuperUserUtils.h"
#include "System/system.h"
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/maintenance/processes.h"
#include "app/commands/vars/environmentcheck.h"
#include "app/session.h"
#include "app/ui/humantext.h"
#include "app/ui/interrupts.h"

namespace app {

namespace {

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

/// Parses four decimal octets. Rejects 0.0.0.0, which means that there is no address.
bool parseAddress(const std::string& text, unsigned& address) {
    in_addr binary = {};
    if (text.find('\0') != std::string::npos || ::inet_pton(AF_INET, text.c_str(), &binary) != 1) {
        return false;
    }
    address = ntohl(binary.s_addr);
    return address != 0;
}

/// Returns why there is no address: the library returns 0 both if there is none and if it cannot
/// read it.
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
    if (Result state = names.empty() ? checkEnvironment() : Result(); state.mStatus == eFailed) {
        return state;
    }
    return Result::failed("no address is stored; 'syslog set ADDRESS' stores one", eAbsent);
}

Result withAddress(unsigned address) {
    Result result;
    const std::string text = addressText(address);
    result.mData.add("address", address != 0 ? text.c_str() : nullptr);
    return result;
}

/// Reaps a child that has exited, and returns how it ended.
std::string endText(int pid) {
    int status = 0;
    if (pid == 0 || ::waitpid(pid, &status, WNOHANG) != pid) {
        return "";
    }
    return WIFSIGNALED(status) ? ", by signal " + std::to_string(WTERMSIG(status))
                               : ", with exit status " + std::to_string(WEXITSTATUS(status));
}

std::string notRestarted(unsigned address) {
    const std::string command =
        drivemanager::startLogDaemon(address != 0 ? addressText(address) : "");
    const bool old = !processesNamed(kLogDaemon).empty();
    return "the log daemon did not start: '" + command + "' tells why; " +
           (old ? "the one before still runs" : "none runs now");
}

/// Fails if a tool is missing whose failure the library does not report.
Result checkTool(const std::string& tool) {
    return ::access(tool.c_str(), X_OK) == 0
               ? Result()
               : Result::failed(quoted(tool) + ": " + std::strerror(errno));
}

Result checkPort(const Words& arguments) {
    unsigned long port = 0;
    return readDecimal(arguments[0], kLastPort, port)
               ? Result()
               : Result::misused("PORT is a number from 0 to 9, not " + quoted(arguments[0]));
}

Result checkAddress(const Words& arguments) {
    unsigned address = 0;
    return parseAddress(arguments[0], address)
               ? Result()
               : Result::misused("ADDRESS is four decimal octets such as 10.0.0.1, not " +
                                 quoted(arguments[0]));
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
    (void)readDecimal(invocation.mArguments[0], kLastPort, port);
    Result result = checkTool(drivemanager::loginPrompt("").front());
    if (!result.good()) {
        return result;
    }
    // The library does not report whether the prompt runs, but as a child of this process it can be
    // watched.
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
        return Result::failed("the login prompt has ended at once" + endText(prompt.mPid));
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
    const std::string start = drivemanager::startLogDaemon("");
    if (Result tool = checkTool(start.substr(0, start.find(' '))); !tool.good()) {
        return tool;
    }
    Result result = withAddress(address);
    const std::vector<Process> before = processesNamed(kLogDaemon);
    {
        const InterruptibleChildren scope;  // so that the daemon does not inherit the blocked
                                            // SIGTERM
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

}  // namespace

constexpr char kSerialCountHelp[] = R"(Count the serial ports.

Looks for /dev/ttyS0 to 9, /dev/tty/0 to 9 and /dev/ttyAS0 to 9.

Exit status:
  1  standard output could not be written

Example:
  kestrova serial count
)";
const Command kSerialCountCommand = {"serial count", "", kSerialCountHelp, 0, eRunsBesideWork,
                                     runSerialCount};

constexpr char kSerialLoginHelp[] = R"(Start a login prompt on a serial port.

PORT is 0 to 9. The prompt, at 115200 baud, outlives this command.

Exit status:
  1  the prompt could not be started, or ended at once
  3  there is no such port

Example:
  kestrova serial login 1
)";
const Command kSerialLoginCommand = {"serial login",  "PORT",         kSerialLoginHelp, 0,
                                     eRunsBesideWork, runSerialLogin, checkPort};

constexpr char kSyslogShowHelp[] = R"(Show the stored address of the remote log.

It is kept in the boot variable 'syslog'.

Exit status:
  1  the boot variables can't be read, or hold no address
  3  none is stored

Example:
  kestrova syslog show
)";
const Command kSyslogShowCommand = {
    "syslog show", "", kSyslogShowHelp, eOptionWait, eRunsBesideWork | eReadsVariables,
    runSyslogShow};

constexpr char kSyslogSetHelp[] = R"(Store an address for the remote log.

ADDRESS is four decimal octets; anything else is refused, and nothing is stored.
It is kept in the boot variable 'syslog', and takes effect with 'syslog apply'.

Exit status:
  1  the address could not be stored

Example:
  kestrova syslog set 10.0.2.2
)";
const Command kSyslogSetCommand = {
    "syslog set", "ADDRESS",   kSyslogSetHelp, eOptionWait, eRunsBesideWork | eWritesVariables,
    runSyslogSet, checkAddress};

constexpr char kSyslogClearHelp[] = R"(Remove the stored address.

That none is stored is no failure. Takes effect with 'syslog apply'.

Exit status:
  1  the boot variables can't be read or saved

Example:
  kestrova syslog clear
)";
const Command kSyslogClearCommand = {
    "syslog clear", "", kSyslogClearHelp, eOptionWait, eRunsBesideWork | eWritesVariables,
    runSyslogClear};

constexpr char kSyslogApplyHelp[] = R"(Restart the log daemon with what is stored.

Ends syslogd and starts it again, with the stored address as its target, or
without one. Takes a second and more.

Exit status:
  1  the boot variables can't be read, or no new syslogd runs now

Example:
  kestrova shell -e 'syslog set 10.0.2.2; syslog apply'
)";
const Command kSyslogApplyCommand = {
    "syslog apply", "", kSyslogApplyHelp, eOptionWait, eRunsBesideWork | eReadsVariables,
    runSyslogApply};

constexpr char kProductionHelp[] = R"(Leave the production test's setting.

Removes the marker /settings/noptest.

Exit status:
  1  the marker could not be removed
  3  the marker is not there

Example:
  kestrova production
)";
const Command kProductionCommand = {"production",    "",           kProductionHelp, 0,
                                    eRunsBesideWork, runProduction};

}  // namespace app
