// SPDX-License-Identifier: MIT
#include "System/drivemanager/tools/toolcommands.h"

namespace drivemanager {

namespace {

constexpr char kSfdisk[] = "/sbin/sfdisk";
constexpr char kMkfsExt3[] = "/sbin/mkfs.ext3";
constexpr char kMkfsXfs[] = "/sbin/mkfs.xfs";
constexpr char kFsckExt3[] = "/sbin/fsck.ext3";
constexpr char kHdparm[] = "/sbin/hdparm";
constexpr char kMount[] = "/bin/mount";
constexpr char kGetty[] = "/sbin/getty";
constexpr char kSyslogd[] = "/sbin/syslogd";

// Formatters and checkers run at low priority, so that they do not disturb the picture.
constexpr int kBackground = 10;

base::ToolCommand partitionTableTool(std::vector<std::string> arguments) {
    base::ToolCommand command;
    command.mArguments = std::move(arguments);
    command.mExecFailure = "Error spawning sfdisk";
    command.mExecFailureStatus = 20;
    return command;
}

base::ToolCommand backgroundTool(std::vector<std::string> arguments) {
    base::ToolCommand command;
    command.mArguments = std::move(arguments);
    command.mNice = kBackground;
    return command;
}

}  // namespace

base::ToolCommand listPartitionTable(const std::string& device) {
    base::ToolCommand command = partitionTableTool({kSfdisk, "-d", device});
    command.mStreamFailure = "failed to open pipe to child\n";
    return command;
}

base::ToolCommand writePartitionTable(const std::string& device) {
    return partitionTableTool({kSfdisk, "-q", "-L", "-uM", device});
}

base::ToolCommand makeExt3(const std::string& partition, const char* label) {
    // No blocks reserved for root, one inode per 2 MiB: recordings are few, large files.
    base::ToolCommand command =
        backgroundTool({kMkfsExt3, "-L", label, "-m", "0", "-i", "2097152", partition});
    command.mExecFailure = "Error spawning mkfs.ext3";
    return command;
}

base::ToolCommand makeXfs(const std::string& partition, const char* label) {
    base::ToolCommand command =
        backgroundTool({kMkfsXfs, "-L", label, "-f", "-l", "lazy-count=0", partition});
    command.mExecFailure = "Error spawning mkfs.xfs";
    return command;
}

base::ToolCommand checkExt3(const std::string& partition) {
    base::ToolCommand command = backgroundTool({kFsckExt3, "-C", "", "-p", partition});
    command.mPipeArgument = 2;
    return command;
}

std::string mountCommand(const std::string& partition, const char* directory, const char* type,
                         const char* options) {
    std::string command = std::string(kMount) + " ";
    if (type != nullptr) {
        command += std::string("-t ") + type;
    }
    command += " " + partition + " " + directory;
    if (options != nullptr && *options != '\0') {
        command += std::string(" -o ") + options;
    }
    return command;
}

std::string standbyCommand(const std::string& device, Standby standby) {
    // The tool's idle time is in units of 5 s.
    const char* const option = standby == Standby::eAfterTwoMinutes ? "-S24"
                               : standby == Standby::eNow           ? "-y"
                                                                    : "-S0";
    return std::string(kHdparm) + " " + option + " " + device;
}

std::vector<std::string> loginPrompt(const std::string& device) {
    return {kGetty, "-L", device, "115200", "vt100"};
}

std::string stopLogDaemon() {
    return "killall syslogd";
}

std::string startLogDaemon(const std::string& remote) {
    const std::string command = std::string(kSyslogd) + " -C";
    return remote.empty() ? command : command + " -R " + remote;
}

}  // namespace drivemanager
