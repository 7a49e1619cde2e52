// SPDX-License-Identifier: MIT
//
// Every command that the library has the box's tools run: paths, arguments, and how each is run.
// docs/tools.md lists them.
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TOOLCOMMANDS_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_TOOLS_TOOLCOMMANDS_H

#include <string>
#include <vector>

#include "base/process/tool.h"

namespace drivemanager {

/// Prints the partition table of a device. Read it with parsePartitionLine().
base::ToolCommand listPartitionTable(const std::string& device);
/// Writes the partition table that partitionScript() describes on the tool's standard input.
base::ToolCommand writePartitionTable(const std::string& device);

/// Makes an ext3 file system. FormatOutput follows what it prints.
base::ToolCommand makeExt3(const std::string& partition, const char* label);
/// Makes an XFS file system.
base::ToolCommand makeXfs(const std::string& partition, const char* label);
/// Checks and repairs an ext3 file system. checkProgress() reads the lines that it writes to the
/// pipe.
base::ToolCommand checkExt3(const std::string& partition);

/// Shell command that mounts a partition.
/// `type`: file system, such as "xfs"; null for none. `options`: null or empty for none.
std::string mountCommand(const std::string& partition, const char* directory, const char* type,
                         const char* options);

/// What a drive does about its standby.
enum class Standby {
    eAfterTwoMinutes,  ///< after 120 s of idle time
    eNow,
    eNever,
};
/// Shell command that sets it.
std::string standbyCommand(const std::string& device, Standby standby);

/// Arguments of the login prompt on a serial device; the first is the program's path.
std::vector<std::string> loginPrompt(const std::string& device);

/// Shell command that ends the system's log daemon.
std::string stopLogDaemon();
/// Shell command that starts it.
/// `remote`: dotted address of the host to log to; empty for none.
std::string startLogDaemon(const std::string& remote);

}  // namespace drivemanager

#endif
