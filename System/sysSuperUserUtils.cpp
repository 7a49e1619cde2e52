// SPDX-License-Identifier: MIT
#include "System/sysSuperUserUtils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/drivemanager/tools/toolcommands.h"
#include "System/system.h"
#include "base/process/launcher.h"
#include "base/process/shellcommand.h"
#include "base/text/ipv4.h"

namespace {

constexpr char kProductionTestMarker[] = "/settings/noptest";
constexpr char kRemoteLogVariable[] = "syslog";

// A box has one of these naming schemes. The second entries differ on purpose: service staff rely
// on both as they are.
const char* const kCountedDevices[] = {"/dev/ttyS", "/dev/tty/", "/dev/ttyAS"};
const char* const kLoginDevices[] = {"/dev/ttyS", "/dev/tts/", "/dev/ttyAS"};

int statDevice(const std::string& name) {
    struct stat status = {};
    return ::stat(name.c_str(), &status);
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
    const std::vector<std::string> prompt = drivemanager::loginPrompt(device);
    const std::vector<const char*> arguments = base::pointersTo(prompt);
    base::ChildSettings settings;
    settings.mArguments = arguments.data();
    // If getty inherited the caller's signal mask, Ctrl-C might not work in the login shell.
    settings.mDetached = true;
    settings.mFailureText = "Failed to spawn getty";
    settings.mFailureStatus = 0;
    const pid_t child = base::startChild(settings);
    int status = 0;
    return child < 1 ? child : base::waitForChild(child, status);
}

void sysSuperUserUtils::RestartRemoteLog(unsigned ip) {
    (void)base::runShell(drivemanager::stopLogDaemon());
    // Waits until the old daemon has released its socket, regardless of signals.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    (void)base::runShell(drivemanager::startLogDaemon(ip != 0 ? dottedText(ip) : ""));
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
