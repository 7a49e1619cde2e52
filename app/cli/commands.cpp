// SPDX-License-Identifier: MIT
#include "app/cli/commands.h"

#include <algorithm>

#include "app/cli/helptexts.h"

namespace app {

const std::vector<Command>& commands() {
    // Name, arguments, summary, help, options, needs the drive, destroys data, runs beside work,
    // check, run, reads input, lock of the boot variables.
    static const std::vector<Command> all = {
        {"table", "", "Show how the partitions of the box are used.", kTableHelp, 0, false, false,
         true, nullptr, runTable},
        {"drive info", "", "Show the recording drive and its partitions.", kInfoHelp, 0, true,
         false, true, nullptr, runDriveInfo},
        {"drive status", "", "Show the drive's status, and its space.", kStatusHelp, 0, true, false,
         true, nullptr, runDriveStatus},
        {"drive partition", "SIZE...", "Write a partition table; all data are lost.",
         kPartitionHelp, eOptionYes | eOptionForce | eOptionDryRun | eOptionSaveTable | eOptionWait,
         true, true, false, checkSizes, runDrivePartition},
        {"drive format", "", "Make the file systems; all their data are lost.", kFormatHelp,
         eOptionYes | eOptionNoWait | eOptionForce | eOptionDryRun | eOptionWait, true, true, false,
         nullptr, runDriveFormat},
        {"drive start", "", "Mount the file systems for recording.", kStartHelp,
         eOptionNoWait | eOptionWait, true, false, false, nullptr, runDriveStart},
        {"drive stop", "", "Unmount what 'drive start' has mounted.", kStopHelp, eOptionWait, true,
         false, false, nullptr, runDriveStop},
        {"drive with", "-- COMMAND...", "Run a program while the drive is started.", kWithHelp,
         eOptionWait, true, false, false, nullptr, runDriveWith},
        {"drive watch", "", "Follow what runs until it has ended.", kWatchHelp, 0, true, false,
         true, nullptr, runDriveWatch},
        {"drive check", "PARTITION", "Check a partition's file system.", kCheckHelp,
         eOptionRepair | eOptionWait, true, false, false, checkPartition, runDriveCheck},
        {"drive spin-down", "", "Standby now, and whenever idle for 120 s.", kSpinDownHelp,
         eOptionWait, true, false, false, nullptr, runDriveSpinDown},
        {"drive spin-up", "", "Wake the drive, and switch its timer off.", kSpinUpHelp, eOptionWait,
         true, false, false, nullptr, runDriveSpinUp},
        {"vars list", "", "Show the boot variables.", kListHelp, eOptionWait, false, false, true,
         nullptr, runVarsList, false, VariablesLock::eReading},
        {"vars get", "NAME", "Print the value of a boot variable.", kGetHelp, eOptionWait, false,
         false, true, nullptr, runVarsGet, false, VariablesLock::eReading},
        {"vars get-binary", "NAME", "Write the bytes of a binary boot variable.", kGetBinaryHelp,
         eOptionWait, false, false, true, nullptr, runVarsGetBinary, false,
         VariablesLock::eReading},
        {"vars set", "NAME VALUE", "Set a boot variable.", kSetHelp, eOptionWait, false, false,
         true, checkNewName, runVarsSet, false, VariablesLock::eWriting},
        {"vars set-binary", "NAME FILE", "Set a binary boot variable to a file's bytes.",
         kSetBinaryHelp, eOptionWait, false, false, true, checkNewName, runVarsSetBinary, false,
         VariablesLock::eWriting},
        {"vars clear", "NAME", "Remove a boot variable.", kClearHelp, eOptionWait, false, false,
         true, nullptr, runVarsClear, false, VariablesLock::eWriting},
        {"vars verify", "FILE", "Check a boot environment file.", kVerifyHelp, 0, false, false,
         true, nullptr, runVarsVerify},
        {"fetch", "URL", "Fetch a document over HTTP.", kFetchHelp, eOptionOutput, false, false,
         true, checkUrls, runFetch},
        {"fetch-all", "[URL...]", "Fetch many small documents over HTTP.", kFetchAllHelp,
         eOptionFolder, false, false, true, checkUrls, runFetchAll, true},
        {"run", "COMMAND", "Run a command of the system's shell.", kRunHelp, eOptionIn, false,
         false, true, checkRun, runRun},
        {"serial count", "", "Count the serial ports.", kCountHelp, 0, false, false, true, nullptr,
         runSerialCount},
        {"serial login", "PORT", "Start a login prompt on a serial port.", kLoginHelp, 0, false,
         false, true, checkPort, runSerialLogin},
        {"syslog show", "", "Show the stored address of the remote log.", kSyslogShowHelp,
         eOptionWait, false, false, true, nullptr, runSyslogShow, false, VariablesLock::eReading},
        {"syslog set", "ADDRESS", "Store an address for the remote log.", kSyslogSetHelp,
         eOptionWait, false, false, true, checkAddress, runSyslogSet, false,
         VariablesLock::eWriting},
        {"syslog clear", "", "Remove the stored address.", kSyslogClearHelp, eOptionWait, false,
         false, true, nullptr, runSyslogClear, false, VariablesLock::eWriting},
        {"syslog apply", "", "Restart the log daemon with what is stored.", kSyslogApplyHelp,
         eOptionWait, false, false, true, nullptr, runSyslogApply, false, VariablesLock::eReading},
        {"production", "", "Leave the production test's setting.", kProductionHelp, 0, false, false,
         true, nullptr, runProduction},
        {"shell", "", "Run several commands in one process.", kShellHelp,
         eOptionExecute | eOptionWait, true, false, false, nullptr, nullptr},
    };
    return all;
}

const Command* findCommand(const Words& words, std::size_t& used) {
    // A command of a group is two words; quoted as one it is no command.
    const bool single = !words.empty() && words[0].find(' ') == std::string::npos;
    for (const Command& command : commands()) {
        if (single && words[0] == command.mName) {
            used = 1;
            return &command;
        }
        if (words.size() > 1 && words[0] + " " + words[1] == command.mName) {
            used = 2;
            return &command;
        }
    }
    return nullptr;
}

bool isCommandGroup(const std::string& word) {
    return std::any_of(commands().begin(), commands().end(), [&word](const Command& command) {
        return std::string(command.mName).rfind(word + " ", 0) == 0;
    });
}

}  // namespace app
