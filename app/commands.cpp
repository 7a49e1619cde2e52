// SPDX-License-Identifier: MIT
#include "app/commands.h"

#include <algorithm>

#include "app/text.h"

namespace app {

namespace {

bool checkNone(const Words& arguments, std::string& error) {
    return checkCount(arguments, {}, error);
}

constexpr char kUnmountsFirst[] =
    "A command that needs the drive brings the whole system up, and that unmounts both file\n"
    "systems of the recording drive, whatever mounted them.\n";

constexpr char kStartHelp[] =
    "Mounts the storage partition on /dvr, with project quotas, and the data partition on\n"
    "/dvr/data. The status must be 'ready'.\n"
    "\n"
    "A start and its stop belong to one process: kestrova shell -e 'drive start; ...; drive "
    "stop'.\n"
    "'drive start' alone leaves the file systems mounted when it exits, and the next full start "
    "of\n"
    "the system, by any command of drive or by an application, unmounts them.\n"
    "Ctrl-C does not stop a mount; in a shell at a terminal it only stops waiting for it.\n";

constexpr char kFormatHelp[] =
    "Makes the file systems of the recording drive: 'DVRData' on partition 1, then 'DVRStorage' "
    "on\n"
    "partition 0. Names the drive and asks first, unless --yes; where nobody can be asked it is\n"
    "refused with exit status 2.\n"
    "\n"
    "A format that runs can't be stopped. Ctrl-C in a shell at a terminal returns to the prompt,\n"
    "and 'drive watch' follows it again; anywhere else the command waits for its end all the "
    "same.\n"
    "A drive with a single partition becomes ready, too: it has no separate data partition.\n";

constexpr char kPartitionHelp[] =
    "Writes a new partition table with one to four partitions. SIZE is a number of MB (of 1048576\n"
    "bytes), or 'rest' for all that is left, which can be the last one only. Names the drive and\n"
    "asks first, unless --yes; where nobody can be asked it is refused with exit status 2.\n"
    "\n"
    "All data of the drive are lost. 'drive format' comes next.\n";

constexpr char kCheckHelp[] =
    "Checks and repairs the ext2/ext3 file system of a partition, given by its index from 0 or by\n"
    "its device node, as 'drive info' shows them. A mounted one is not checked. When errors were\n"
    "found the command fails, also when all of them were corrected: a second check tells.\n"
    "A check that runs is not stopped by Ctrl-C.\n";

constexpr char kWatchHelp[] =
    "Follows a format or a mount that runs in this shell, started with --no-wait or left with\n"
    "Ctrl-C, until it has ended; it then reports and exits as that command would have done. "
    "Without\n"
    "one it shows the status.\n";

constexpr char kAbsentHelp[] =
    "Exit status 3 tells that there is no such variable, or no environment yet; 1 that the\n"
    "environment can't be read.\n";

constexpr char kListHelp[] =
    "Prints NAME=VALUE, in the order of the names, control characters as \\xNN. Exit status 3 "
    "tells\n"
    "that there is no environment yet; 1 that it can't be read.\n";

constexpr char kSetHelp[] =
    "When it is done the variable is on the disk. An empty VALUE removes the variable. A VALUE "
    "that\n"
    "begins with '-' needs '--' in front: kestrova vars set -- NAME -1\n"
    "Where no environment can be read, a new one with this variable alone is written.\n";

constexpr char kVerifyHelp[] =
    "Checks a copy of the file 'boot_env' and tells what is wrong, and at which byte. Looks at "
    "this\n"
    "file alone, and not with the library's reader: it is a second opinion. Exit status 0 for a "
    "good\n"
    "one, 1 for a bad one, 3 when there is no such file.\n";

constexpr char kFetchHelp[] =
    "The URL has the form http://HOST[:PORT]/PATH. The document goes to standard output, or to a\n"
    "file (-o), which appears, or replaces an older one, when all of the document is there. At a\n"
    "terminal standard error shows how far it is. Ctrl-C cancels.\n"
    "\n"
    "Exit status 4 tells that the document could not be opened, 5 that it broke off, 6 that it "
    "was\n"
    "cancelled, 1 that it could not be written. With --json, -o is needed.\n";

constexpr char kFetchAllHelp[] =
    "Fetches documents of less than 20480 bytes one after the other, and prints a line for each:\n"
    "'ok' or 'failed', bytes, type, URL and, with -d, its file, with tabs in between. Without "
    "URLs\n"
    "reads them from standard input, one a line. A failed connection is tried again, up to three\n"
    "times. A file is named after the last part of its URL's path, with '.2' and so on behind "
    "when\n"
    "an earlier document has that name, and replaces an older file.\n"
    "\n"
    "Exit status 1 tells that a document failed. Ctrl-C waits for the document under way, and "
    "ends\n"
    "with exit status 6.\n";

constexpr char kRunHelp[] =
    "COMMAND is one argument, in quotes, for '/bin/sh -c'. Its output and errors are passed on; "
    "its\n"
    "input is empty unless --in. The exit status is the command's, or 128 + N when signal N ended "
    "it.\n"
    "Returns when nobody has the command's outputs open any more: lead those of a program that it\n"
    "leaves behind elsewhere. With --json its output goes to standard error, too.\n";

constexpr char kLoginHelp[] =
    "PORT is 0 to 9. The prompt, at 115200 baud, outlives this command. Exit status 3 tells that\n"
    "there is no such port.\n";

constexpr char kSyslogAbsentHelp[] =
    "Exit status 3 tells that none is stored; 1 that the boot variables can't be read.\n";

constexpr char kSyslogSetHelp[] =
    "ADDRESS is four decimal octets; anything else is refused, and nothing is stored. It is kept "
    "in\n"
    "the boot variable 'syslog', and takes effect with 'syslog apply'.\n";

constexpr char kSyslogClearHelp[] =
    "That none is stored is no failure. Takes effect with 'syslog apply'.\n";

constexpr char kSyslogApplyHelp[] =
    "Ends syslogd and starts it again, with the stored address as its target, or without one. "
    "Takes "
    "a\n"
    "second and more. Nothing tells whether the daemon has stayed.\n";

constexpr char kProductionHelp[] =
    "Removes the marker /settings/noptest. Exit status 3 tells that it is not there.\n";

constexpr char kShellHelp[] =
    "Reads commands from standard input, or from -e, and runs them in one process, the system "
    "being\n"
    "up between them. Commands end at ';' or the line's end; quotes, backslash and '#' work as in "
    "a\n"
    "shell. 'help' and 'exit' are commands, too. A line, or the whole of -e, is checked before "
    "the\n"
    "first of its commands runs.\n"
    "\n"
    "From -e, a file or a pipe it ends at the first command that fails, with that command's exit\n"
    "status; at a terminal it goes on, and ends with the status of the last command.\n"
    "Drives that were started and not stopped stay mounted.\n";

}  // namespace

const std::vector<Command>& commands() {
    // Name, arguments, summary, help, options, needs the drive, destroys data, runs beside work.
    static const std::vector<Command> all = {
        {"table", "", "Show how the block devices and partitions of the box are used.",
         "Needs no drive, and leaves it alone.\n", 0, false, false, true, checkNone, runTable},
        {"drive info", "", "Show the recording drive and its partitions.", kUnmountsFirst, 0, true,
         false, false, checkNone, runDriveInfo},
        {"drive status", "", "Show the state of the recording drive, and its space.",
         kUnmountsFirst, 0, true, false, true, checkNone, runDriveStatus},
        {"drive partition", "SIZE...", "Write a new partition table; all data are lost.",
         kPartitionHelp, eOptionYes, true, true, false, checkSizes, runDrivePartition},
        {"drive format", "", "Make the file systems of the drive; all their data are lost.",
         kFormatHelp, eOptionYes | eOptionNoWait, true, true, false, checkNone, runDriveFormat},
        {"drive start", "", "Mount the file systems for recording.", kStartHelp, eOptionNoWait,
         true, false, false, checkNone, runDriveStart},
        {"drive stop", "", "Unmount what 'drive start' has mounted.",
         "Needs a 'drive start' in the same shell.\n", 0, true, false, false, checkNone,
         runDriveStop},
        {"drive watch", "", "Follow what runs until it has ended.", kWatchHelp, 0, true, false,
         true, checkNone, runDriveWatch},
        {"drive check", "PARTITION", "Check and repair an ext2/ext3 partition.", kCheckHelp, 0,
         true, false, false, checkPartition, runDriveCheck},
        {"drive spin-down", "", "Send the drive to standby, now and when idle for 120 s.", "", 0,
         true, false, false, checkNone, runDriveSpinDown},
        {"drive spin-up", "", "Wake the drive, and switch its standby timer off.", "", 0, true,
         false, false, checkNone, runDriveSpinUp},
        {"vars list", "", "Show the boot variables.", kListHelp, 0, false, false, true, checkNone,
         runVarsList},
        {"vars get", "NAME", "Print the value of a boot variable.", kAbsentHelp, 0, false, false,
         true, checkName, runVarsGet},
        {"vars get-binary", "NAME", "Write the bytes of a binary boot variable.", kAbsentHelp, 0,
         false, false, true, checkName, runVarsGetBinary},
        {"vars set", "NAME VALUE", "Set a boot variable.", kSetHelp, 0, false, false, true,
         checkNameAndValue, runVarsSet},
        {"vars set-binary", "NAME FILE", "Set a binary boot variable to what a file holds.",
         "The variable holds the bytes as base64 text.\n", 0, false, false, true, checkNameAndFile,
         runVarsSetBinary},
        {"vars clear", "NAME", "Remove a boot variable.",
         "A variable that is not there is no failure.\n", 0, false, false, true, checkName,
         runVarsClear},
        {"vars verify", "FILE", "Check a boot environment file.", kVerifyHelp, 0, false, false,
         true, checkFile, runVarsVerify},
        {"fetch", "URL", "Fetch a document over HTTP.", kFetchHelp, eOptionOutput, false, false,
         true, checkUrl, runFetch},
        {"fetch-all", "[URL...]", "Fetch many small documents over HTTP.", kFetchAllHelp,
         eOptionFolder, false, false, true, checkUrls, runFetchAll, true},

        {"run", "COMMAND", "Run a command of the system's shell.", kRunHelp, eOptionIn, false,
         false, true, checkRun, runRun},
        {"serial count", "", "Count the serial ports.", "", 0, false, false, true, checkNone,
         runSerialCount},
        {"serial login", "PORT", "Start a login prompt on a serial port.", kLoginHelp, 0, false,
         false, true, checkPort, runSerialLogin},
        {"syslog show", "", "Show the stored address of the remote log.", kSyslogAbsentHelp, 0,
         false, false, true, checkNone, runSyslogShow},
        {"syslog set", "ADDRESS", "Store an address for the remote log.", kSyslogSetHelp, 0, false,
         false, true, checkAddress, runSyslogSet},
        {"syslog clear", "", "Remove the stored address.", kSyslogClearHelp, 0, false, false, true,
         checkNone, runSyslogClear},
        {"syslog apply", "", "Restart the log daemon with what is stored.", kSyslogApplyHelp, 0,
         false, false, true, checkNone, runSyslogApply},
        {"production", "", "Leave the production test's setting.", kProductionHelp, 0, false, false,
         true, checkNone, runProduction},
        {"shell", "", "Run several commands in one process.", kShellHelp, eOptionExecute, true,
         false, false, checkNone, nullptr},
    };
    return all;
}

const Command* findCommand(const Words& words, std::size_t& used) {
    for (const Command& command : commands()) {
        if (!words.empty() && words[0] == command.mName) {
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

bool checkCount(const Words& arguments, const std::vector<const char*>& wanted,
                std::string& error) {
    if (arguments.size() < wanted.size()) {
        error = std::string("argument ") + wanted[arguments.size()] + " is missing";
        return false;
    }
    if (arguments.size() > wanted.size()) {
        error = "unexpected argument " + quoted(arguments[wanted.size()]);
        return false;
    }
    return true;
}

bool isCommandGroup(const std::string& word) {
    return std::any_of(commands().begin(), commands().end(), [&word](const Command& command) {
        return std::string(command.mName).rfind(word + " ", 0) == 0;
    });
}

}  // namespace app
