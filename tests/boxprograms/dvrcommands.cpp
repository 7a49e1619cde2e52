// SPDX-License-Identifier: MIT
//
// Commands on the system object and its recording drive.
#include <chrono>
#include <stdexcept>
#include <thread>

#include "System/drivemanager/drivemanager.h"
#include "System/system.h"
#include "driveprobe.h"

namespace {

sysDriveManager& manager() {
    if (getSystem() == nullptr || getSystem()->mpDriveManager == nullptr) {
        throw std::logic_error("no drive manager");
    }
    return *getSystem()->mpDriveManager;
}

Words status() {
    static const char* const names[] = {"none",  "error",    "not-formatted", "formatting",
                                        "ready", "starting", "started"};
    sysDVRDrive::Status value = sysDVRDrive::eStNone;
    int progress = -1;
    recorder().getStatus(&value, &progress);
    return {names[value], std::to_string(progress)};
}

/// Follows the status until no worker runs. The answer is every status seen, without repetitions.
Words watch() {
    Words seen;
    for (;;) {
        const Words now = status();
        const std::string text = now[0] + " " + now[1];
        if (seen.empty() || seen.back() != text) {
            seen.push_back(text);
        }
        if (now[0] != "formatting" && now[0] != "starting") {
            return seen;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void addSystemCommands(Commands& commands) {
    commands["up"] = [](const Words& words) -> Words {
        words.at(1) == "full" ? SystemInit() : SystemMinimalInit();
        return {};
    };
    commands["down"] = [](const Words&) -> Words {
        SystemTerm();
        return {};
    };
    commands["has-drive"] = [](const Words&) { return answer(manager().hasDVRDrive()); };
    commands["has-manager"] = [](const Words&) {
        return answer(getSystem()->mpDriveManager != nullptr);
    };
}

}  // namespace

sysDVRDrive& recorder() {
    sysDVRDrive* const drive = manager().getDVRDrive();
    if (drive == nullptr) {
        throw std::logic_error("no recording drive");
    }
    return *drive;
}

void addDvrCommands(Commands& commands) {
    addSystemCommands(commands);
    commands["init"] = [](const Words&) { return answer(recorder().init()); };
    commands["initialize"] = [](const Words&) { return answer(recorder().initialize()); };
    commands["start"] = [](const Words&) { return answer(recorder().start()); };
    commands["stop"] = [](const Words&) { return answer(recorder().stop()); };
    commands["shut"] = [](const Words&) { return answer(recorder().shut()); };
    commands["status"] = [](const Words&) { return status(); };
    commands["watch"] = [](const Words&) { return watch(); };
    commands["model"] = [](const Words&) -> Words { return {recorder().model()}; };
    commands["sizes"] = [](const Words&) -> Words {
        sysDVRDrive& drive = recorder();
        return {std::to_string(drive.blockSize()), std::to_string(drive.freeMB()),
                std::to_string(drive.totalMB())};
    };
}
