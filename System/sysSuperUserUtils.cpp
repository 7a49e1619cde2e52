// SPDX-License-Identifier: MIT
#include "System/sysSuperUserUtils.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "base/childprocess.h"
#include "base/ipv4.h"
#include "base/shell.h"

namespace {

constexpr char kProductionTestMarker[] = "/settings/noptest";
constexpr char kRemoteLogVariable[] = "syslog";

// A box has one of these naming schemes. The counter and the login prompt differ in the second one,
// and service staff rely on both as they are.
const char* const kCountedDevices[] = {"/dev/ttyS", "/dev/tty/", "/dev/ttyAS"};
const char* const kLoginDevices[] = {"/dev/ttyS", "/dev/tts/", "/dev/ttyAS"};

int statDevice(const std::string& name) {
    struct stat status = {};
    return ::stat(name.c_str(), &status);
}

/// The detached process that becomes the login prompt. Runs in the child of a threaded process.
[[noreturn]] void runGetty(const char* const* arguments) {
    base::closeDescriptorsFrom(STDERR_FILENO + 1);
    // With the caller's mask, Ctrl-C might do nothing in the shell of whoever logs in.
    base::resetSignals();
    if (base::detachChild()) {
        (void)::execve(arguments[0], const_cast<char* const*>(arguments), environ);
        base::reportInChild("Failed to spawn getty");
    }
    ::_exit(0);
}

std::string dottedText(unsigned ip) {
    char text[kIpV4TextSize];
    return ipV4toString(text, ip);
}

}  // namespace

sysSuperUserUtils::sysSuperUserUtils(sysInterface* system) : mpSystem(system) {}

sysSuperUserUtils::~sysSuperUserUtils() = default;

int sysSuperUserUtils::ResetToProduction() {
    return ::unlink(kProductionTestMarker);
}

unsigned sysSuperUserUtils::GetNumSerial() {
    constexpr int portsPerScheme = 10;
    unsigned count = 0;
    for (const char* const scheme : kCountedDevices) {
        for (int port = 0; port < portsPerScheme; ++port) {
            count += statDevice(scheme + std::to_string(port)) == 0 ? 1U : 0U;
        }
    }
    return count;
}

int sysSuperUserUtils::SpawnGetty(int port) {
    std::string device;
    int found = -1;
    for (const char* const scheme : kLoginDevices) {
        device = scheme + std::to_string(port);
        found = statDevice(device);
        if (found == 0) {
            break;
        }
    }
    if (found != 0) {
        return found;
    }
    const char* const arguments[] = {"/sbin/getty", "-L",    device.c_str(),
                                     "115200",      "vt100", nullptr};
    const pid_t child = ::fork();
    if (child == 0) {
        runGetty(arguments);
    }
    if (child < 1) {
        return child;
    }
    pid_t waited = -1;
    do {
        waited = ::waitpid(child, nullptr, 0);
    } while (waited < 0 && errno == EINTR);
    return waited;
}

void sysSuperUserUtils::RestartRemoteLog(unsigned ip) {
    (void)base::runShell("killall syslogd");
    // Until the old daemon has let go of its socket, whatever signals come meanwhile.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::string command = "/sbin/syslogd -C";
    if (ip != 0) {
        command += " -R " + dottedText(ip);
    }
    (void)base::runShell(command);
}

unsigned sysSuperUserUtils::GetRemoteLogIP() {
    char text[1024];
    if (!mpSystem->mpBootVarsManager->getVarS(kRemoteLogVariable, text, sizeof(text))) {
        return 0;
    }
    return buildIpV4(text);
}

int sysSuperUserUtils::StoreRemoteLogIP(unsigned ip) {
    const unsigned current = GetRemoteLogIP();
    if (current == ip) {
        return static_cast<int>(current);
    }
    sysBootVarsManager* const variables = mpSystem->mpBootVarsManager;
    const bool stored = ip == 0 ? variables->clearVar(kRemoteLogVariable)
                                : variables->setVarS(kRemoteLogVariable, dottedText(ip).c_str());
    return stored ? 1 : 0;
}
