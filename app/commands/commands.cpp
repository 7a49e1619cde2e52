// SPDX-License-Identifier: MIT
#include "app/commands/commands.h"

#include <algorithm>

namespace app {

const std::vector<const Command*>& commands() {
    static const std::vector<const Command*> all = {
        &kTableCommand,         &kDriveInfoCommand,
        &kDriveStatusCommand,   &kDrivePartitionCommand,
        &kDriveFormatCommand,   &kDriveStartCommand,
        &kDriveStopCommand,     &kDriveWithCommand,
        &kDriveWatchCommand,    &kDriveCheckCommand,
        &kDriveSpinDownCommand, &kDriveSpinUpCommand,
        &kVarsListCommand,      &kVarsGetCommand,
        &kVarsGetBinaryCommand, &kVarsSetCommand,
        &kVarsSetBinaryCommand, &kVarsClearCommand,
        &kVarsImportCommand,    &kVarsExportCommand,
        &kVarsCreateCommand,    &kVarsVerifyCommand,
        &kFetchCommand,         &kFetchAllCommand,
        &kRunCommand,           &kSerialCountCommand,
        &kSerialLoginCommand,   &kSyslogShowCommand,
        &kSyslogSetCommand,     &kSyslogClearCommand,
        &kSyslogApplyCommand,   &kProductionCommand,
        &kShellCommand,
    };
    return all;
}

const Command* findCommand(const std::string& name) {
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&](const Command* command) { return name == command->mName; });
    return found == commands().end() ? nullptr : *found;
}

bool isCommandGroup(const std::string& word) {
    return std::any_of(commands().begin(), commands().end(), [&](const Command* command) {
        return std::string(command->mName).rfind(word + " ", 0) == 0;
    });
}

}  // namespace app
