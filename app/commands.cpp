// SPDX-License-Identifier: MIT
#include "app/commands.h"

#include <algorithm>

#include "app/helptexts.h"

namespace app {

const std::vector<Command>& commands() {
    // Name, arguments, summary, help, options, needs the drive, destroys data, runs beside work.
    static const std::vector<Command> all = {
        {"table", "", "Show how the partitions of the box are used.", kTableHelp, 0, false, false,
         true, nullptr, runTable},
        {"drive info", "", "Show the recording drive and its partitions.", kInfoHelp, 0, true,
         false, false, nullptr, runDriveInfo},
        {"drive status", "", "Show the drive's status, and its space.", kStatusHelp, 0, true, false,
         true, nullptr, runDriveStatus},
        {"drive partition", "SIZE...", "Write a partition table; all data are lost.",
         kPartitionHelp, eOptionYes, true, true, false, checkSizes, runDrivePartition},
        {"drive format", "", "Make the file systems; all their data are lost.", kFormatHelp,
         eOptionYes | eOptionNoWait, true, true, false, nullptr, runDriveFormat},
        {"drive start", "", "Mount the file systems for recording.", kStartHelp, eOptionNoWait,
         true, false, false, nullptr, runDriveStart},
        {"drive stop", "", "Unmount what 'drive start' has mounted.", kStopHelp, 0, true, false,
         false, nullptr, runDriveStop},
        {"drive watch", "", "Follow what runs until it has ended.", kWatchHelp, 0, true, false,
         true, nullptr, runDriveWatch},
        {"drive check", "PARTITION", "Check and repair an ext2/ext3 partition.", kCheckHelp, 0,
         true, false, false, checkPartition, runDriveCheck},
        {"drive spin-down", "", "Standby now, and whenever idle for 120 s.", kSpinDownHelp, 0, true,
         false, false, nullptr, runDriveSpinDown},
        {"drive spin-up", "", "Wake the drive, and switch its timer off.", kSpinUpHelp, 0, true,
         false, false, nullptr, runDriveSpinUp},
        {"vars list", "", "Show the boot variables.", kListHelp, 0, false, false, true, nullptr,
         runVarsList},
        {"vars get", "NAME", "Print the value of a boot variable.", kGetHelp, 0, false, false, true,
         nullptr, runVarsGet},
        {"vars get-binary", "NAME", "Write the bytes of a binary boot variable.", kGetBinaryHelp, 0,
         false, false, true, nullptr, runVarsGetBinary},
        {"vars set", "NAME VALUE", "Set a boot variable.", kSetHelp, 0, false, false, true,
         checkNewName, runVarsSet},
        {"vars set-binary", "NAME FILE", "Set a binary boot variable to a file's bytes.",
         kSetBinaryHelp, 0, false, false, true, checkNewName, runVarsSetBinary},
        {"vars clear", "NAME", "Remove a boot variable.", kClearHelp, 0, false, false, true,
         nullptr, runVarsClear},
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
        {"syslog show", "", "Show the stored address of the remote log.", kSyslogShowHelp, 0, false,
         false, true, nullptr, runSyslogShow},
        {"syslog set", "ADDRESS", "Store an address for the remote log.", kSyslogSetHelp, 0, false,
         false, true, checkAddress, runSyslogSet},
        {"syslog clear", "", "Remove the stored address.", kSyslogClearHelp, 0, false, false, true,
         nullptr, runSyslogClear},
        {"syslog apply", "", "Restart the log daemon with what is stored.", kSyslogApplyHelp, 0,
         false, false, true, nullptr, runSyslogApply},
        {"production", "", "Leave the production test's setting.", kProductionHelp, 0, false, false,
         true, nullptr, runProduction},
        {"shell", "", "Run several commands in one process.", kShellHelp, eOptionExecute, true,
         false, false, nullptr, nullptr},
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
