// SPDX-License-Identifier: MIT
//
// The table of commands. Each row is defined in the file of its command.
#ifndef KESTROVA_APP_COMMANDS_COMMANDS_H
#define KESTROVA_APP_COMMANDS_COMMANDS_H

#include <string>
#include <vector>

#include "app/cli/command.h"

namespace app {

extern const Command kTableCommand;
extern const Command kDriveInfoCommand;
extern const Command kDriveStatusCommand;
extern const Command kDrivePartitionCommand;
extern const Command kDriveFormatCommand;
extern const Command kDriveStartCommand;
extern const Command kDriveStopCommand;
extern const Command kDriveWithCommand;
extern const Command kDriveWatchCommand;
extern const Command kDriveCheckCommand;
extern const Command kDriveSpinDownCommand;
extern const Command kDriveSpinUpCommand;
extern const Command kVarsListCommand;
extern const Command kVarsGetCommand;
extern const Command kVarsGetBinaryCommand;
extern const Command kVarsSetCommand;
extern const Command kVarsSetBinaryCommand;
extern const Command kVarsClearCommand;
extern const Command kVarsImportCommand;
extern const Command kVarsExportCommand;
extern const Command kVarsCreateCommand;
extern const Command kVarsVerifyCommand;
extern const Command kFetchCommand;
extern const Command kFetchAllCommand;
extern const Command kRunCommand;
extern const Command kSerialCountCommand;
extern const Command kSerialLoginCommand;
extern const Command kSyslogShowCommand;
extern const Command kSyslogSetCommand;
extern const Command kSyslogClearCommand;
extern const Command kSyslogApplyCommand;
extern const Command kProductionCommand;
extern const Command kShellCommand;

/// Returns all commands, in the order of the help.
const std::vector<const Command*>& commands();

/// Returns the command with this name, such as "table" or "drive info"; null if there is none.
const Command* findCommand(const std::string& name);

/// Returns whether a word is the first word of commands of two words, such as "drive".
bool isCommandGroup(const std::string& word);

}  // namespace app

#endif
