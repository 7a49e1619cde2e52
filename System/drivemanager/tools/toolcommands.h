// SPDX-License-Identifier: MIT
//
// Every command that the library runs with the box's tools: paths, arguments and settings.
// docs/tools.md lists them.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TOOLCOMMANDS_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TOOLCOMMANDS_H

#include <string>
#include <vector>

#include "base/process/tool.h"

namespace drivemanager {

/// Prints the partition table of a device. parsePartitionLine() parses the output.
base::ToolCommand listPartitionTable(const std::string& device);
/// Writes a partition table. The tool's standard input is partitionScript().
base::ToolCommand writePartitionTable(const std::string& device);

/// Makes an ext3 file system. FormatOutput parses the output.
base::ToolCommand makeExt3(const std::string& partition, const char* label);
/// Makes an XFS file system.
base::ToolCommand makeXfs(const std::string& partition, const char* label);
/// Checks and repairs an ext3 file system. checkProgress() parses the lines that it writes to the
/// pipe.
base::ToolCommand checkExt3(const std::string& partition);

/// Returns the shell command that mounts a partition.
/// `type`: file system, such as "xfs"; null for none. `options`: null or empty for none.
std::string mountCommand(const std::string& partition, const char* directory, const char* type,
                         const char* options);

/// Standby setting of a drive.
enum class Standby {
    eAfterTwoMinutes,  ///< after 120 s of idle time
    eNow,
    eNever,
};
/// Returns the shell command that applies the setting.
std::string standbyCommand(const std::string& device, Standby standby);

/// Returns the arguments of the login prompt on a serial device; the first is the program's path.
std::vector<std::string> loginPrompt(const std::string& device);

/// Returns the shell command that stops the system's log daemon.
std::string stopLogDaemon();
/// Returns the shell command that starts it.
/// `remote`: dotted address of the host to log to; empty for none.
std::string startLogDaemon(const std::string& remote);

}  // namespace drivemanager

#endif
