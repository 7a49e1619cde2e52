// SPDX-License-Identifier: MIT
//
// What the help of each command says besides its usage, purpose and options. Lines of at most 80
// columns, as the console of a box has no more.
#ifndef KESTROVA_APP_CLI_HELPTEXTS_H
#define KESTROVA_APP_CLI_HELPTEXTS_H

namespace app {

/// Whole lines, or "" for none.
struct HelpText {
    const char* mMore;      ///< what it does in detail
    const char* mFailed;    ///< meaning of exit status 1, without a line end
    const char* mStatuses;  ///< exit statuses from 3 on
    const char* mExamples;
};

inline constexpr HelpText kTableHelp = {"Needs no drive, and leaves it alone.\n",
                                        "standard output could not be written", "",
                                        "  kestrova table\n"};

inline constexpr HelpText kInfoHelp = {
    R"(Device, model, serial number, capacity, status and partitions. Changes nothing;
the drive is opened for reading only, and what is mounted stays mounted.
)",
    "there is no recording drive, or it can't be read", "", R"(  kestrova drive info
  kestrova --json drive info
)"};

inline constexpr HelpText kStatusHelp = {
    R"(The status is none, error, not-formatted, formatting, ready, starting or
started. Size and free space are shown of both file systems; recordings belong
into the data partition, or without one into the storage partition. Changes
nothing, as 'drive info'.
)",
    "there is no recording drive, or it can't be read", "",
    R"(  kestrova drive status
  kestrova shell -e 'drive start; drive status; drive stop'
)"};

inline constexpr HelpText kPartitionHelp = {
    R"(Writes a table of one to four partitions. SIZE is a number of MiB (1500 or
1500M), of GiB (6G) or TiB (1T), a share of the drive (50%), or 'rest' for all
that is left, which can be the last one only. Names the drive and asks first,
unless --yes; where nobody can be asked it is refused with exit status 2.

All data of the drive are lost. Refused while a partition of the drive is
mounted and, without --force, when the drive holds a file system that is not the
recording drive's own. The old table is saved first, in a new file below
/var/lib/kestrova or, if that can't be written, /run/kestrova. 'drive format'
comes next.
)",
    "refused, not confirmed, too large for the drive, or not written", "",
    R"(  kestrova drive partition --dry-run 40G rest
  kestrova drive partition 40G rest
)"};

inline constexpr HelpText kFormatHelp = {
    R"(Makes the file systems of the recording drive: 'DVRData' on partition 1, then
'DVRStorage' on partition 0. Names the drive and asks first, unless --yes; where
nobody can be asked it is refused with exit status 2. Refused as well as 'drive
partition' is.

A format that runs can't be stopped. Ctrl-C in a shell at a terminal returns to
the prompt, and 'drive watch' follows it again; anywhere else the command waits
for its end all the same.
A drive with a single partition becomes ready, too: it has no separate data
partition. 'drive start' comes next.
)",
    "refused, not confirmed, not partitioned, or not formatted", "",
    R"(  kestrova drive format
  kestrova drive format --yes
)"};

inline constexpr HelpText kStartHelp = {
    R"(Mounts the storage partition on /dvr, with project quotas, and the data
partition on /dvr/data. The status must be 'ready'.

A shell that has started the drive stops it when it ends, whatever happens.
'drive start' alone leaves the file systems mounted when it exits, until 'drive
stop' or the next full start of the system unmounts them.
Ctrl-C does not stop a mount; in a shell at a terminal it only stops waiting for
it.
)",
    "not formatted, started already, or not mounted", "",
    "  kestrova shell -e 'drive start; drive status; drive stop'\n"};

inline constexpr HelpText kStopHelp = {
    R"(Unmounts both file systems of the recording drive, also after a 'drive start' of
another process that has ended.
)",
    "not started, or a file system is in use", "",
    "  kestrova shell -e 'drive start; drive status; drive stop'\n"};

inline constexpr HelpText kWithHelp = {
    R"(Starts the drive, runs COMMAND, without a shell, and stops the drive whatever
happens: when COMMAND fails, and at Ctrl-C, SIGTERM and SIGHUP, which COMMAND
gets first. The environment variable KESTROVA_RECORDINGS holds the directory
that recordings belong into.
)",
    "not started or not stopped",
    "  N  COMMAND's own exit status; 128 + N when signal N ended it, 127 not found\n",
    "  kestrova drive with -- sh -c 'exec recorder >$KESTROVA_RECORDINGS/film'\n"};

inline constexpr HelpText kWatchHelp = {
    R"(Follows a format or a mount that runs in this shell, started with --no-wait or
left with Ctrl-C, until it has ended; it then reports and exits as that command
would have done. Follows what another process does to the drive in the same way.
Without anything to follow it shows the status.
)",
    "what it followed has failed", "  6  Ctrl-C; what it followed goes on\n",
    "  kestrova shell -e 'drive format --yes --no-wait; drive watch'\n"};

inline constexpr HelpText kCheckHelp = {
    R"(PARTITION is an index from 0 or a device node, as 'drive info' shows them. A
mounted one is not checked. An ext2/ext3 file system is checked and repaired at
once. An XFS file system is only checked, and repaired with --repair. A check
that runs is not stopped by Ctrl-C.
)",
    "not checked, or it had errors, even if all are corrected now", "",
    R"(  kestrova drive check --repair 1
  kestrova drive check /dev/sda2
)"};

inline constexpr HelpText kSpinDownHelp = {"Any access wakes the drive.\n",
                                           "the drive did not take the commands", "",
                                           "  kestrova drive spin-down\n"};

inline constexpr HelpText kSpinUpHelp = {"It does not fall asleep again until 'drive spin-down'.\n",
                                         "the drive can't be opened", "",
                                         "  kestrova drive spin-up\n"};

inline constexpr HelpText kListHelp = {
    "Prints NAME=VALUE, in the order of the names, control characters as \\xNN.\n",
    "the environment can't be read", "  3  there is no environment yet\n",
    "  kestrova vars list\n"};

inline constexpr HelpText kGetHelp = {
    "Prints the value as it is, and a line end.\n", "the environment can't be read",
    "  3  there is no such variable, or no environment yet\n", "  kestrova vars get language\n"};

inline constexpr HelpText kGetBinaryHelp = {
    "Writes the bytes and nothing else to standard output.\n",
    "the environment can't be read, or the variable is not binary",
    "  3  there is no such variable, or no environment yet\n",
    "  kestrova vars get-binary key >FILE\n"};

inline constexpr HelpText kSetHelp = {
    R"(When it is done the variable is on the disk. An empty VALUE removes the
variable. A VALUE that begins with '-' needs '--' in front. A NAME that is empty
or holds '=' is refused. Where no environment can be read, a new one with this
variable alone is written.
)",
    "the environment could not be saved", "", R"(  kestrova vars set language en
  kestrova vars set -- offset -1
)"};

inline constexpr HelpText kSetBinaryHelp = {
    R"(The variable holds the bytes as base64 text. When it is done it is on the disk.
An empty FILE is refused, and a NAME that is empty or holds '='.
)",
    "FILE could not be read, or the environment not be saved", "",
    "  kestrova vars set-binary key FILE\n"};

inline constexpr HelpText kClearHelp = {"A variable that is not there is no failure.\n",
                                        "the environment could not be saved", "",
                                        "  kestrova vars clear language\n"};

inline constexpr HelpText kVerifyHelp = {
    R"(Checks a copy of the file 'boot_env' and tells what is wrong, and at which byte.
Looks at this file alone, and not with the library's reader: it is a second
opinion.
)",
    "there is a problem, or FILE can't be read",
    "  3  there is no such file\n  6  cancelled by Ctrl-C\n", "  kestrova vars verify boot_env\n"};

inline constexpr HelpText kFetchHelp = {
    R"(The URL has the form http://HOST[:PORT]/PATH. The document goes to standard
output (also with -o -), or to a file (-o), which appears, or replaces an older
one, when all of the document is there. At a terminal standard error shows how
far it is. Ctrl-C cancels. With --json, -o FILE is needed.
)",
    "the document could not be written",
    R"(  4  the document could not be opened; the message says why
  5  the document broke off
  6  cancelled by Ctrl-C
)",
    "  kestrova fetch http://10.0.2.2/film -o /dvr/data/film\n"};

inline constexpr HelpText kFetchAllHelp = {
    R"(Fetches documents of less than 20480 bytes one after the other, and prints a
line for each: 'ok' or 'failed', bytes, type, URL and, with -d, its file, or
the reason of the failure, with tabs in between. Without URLs reads them from
standard input, one a line. A failed connection is tried again, up to three
times. A file is named after the last part of its URL's path, with '.2' and so
on behind when an earlier document has that name, and replaces an older file.
Ctrl-C waits for the document under way.
)",
    "a document failed or could not be saved", "  6  cancelled by Ctrl-C\n",
    R"(  kestrova fetch-all -d /dvr/data http://10.0.2.2/a http://10.0.2.2/b
  kestrova fetch-all <LIST
)"};

inline constexpr HelpText kRunHelp = {
    R"(COMMAND is one argument, in quotes, for '/bin/sh -c'. Its output and errors are
passed on; its input is empty unless --in. Returns when nobody has the command's
outputs open any more: lead those of a program that it leaves behind elsewhere.
With --json its output goes to standard error, too.
)",
    "the shell could not be started",
    R"(  N  COMMAND's own exit status, whatever it is; 128 + N when signal N ended it
)",
    R"(  kestrova run 'df -h | grep /dvr'
  kestrova run 'daemon >/dev/null 2>&1 &'
)"};

inline constexpr HelpText kCountHelp = {
    "Looks for /dev/ttyS0 to 9, /dev/tty/0 to 9 and /dev/ttyAS0 to 9.\n",
    "standard output could not be written", "", "  kestrova serial count\n"};

inline constexpr HelpText kLoginHelp = {
    "PORT is 0 to 9. The prompt, at 115200 baud, outlives this command.\n",
    "the prompt could not be started, or ended at once", "  3  there is no such port\n",
    "  kestrova serial login 1\n"};

inline constexpr HelpText kSyslogShowHelp = {"It is kept in the boot variable 'syslog'.\n",
                                             "the boot variables can't be read, or hold no address",
                                             "  3  none is stored\n", "  kestrova syslog show\n"};

inline constexpr HelpText kSyslogSetHelp = {
    R"(ADDRESS is four decimal octets; anything else is refused, and nothing is stored.
It is kept in the boot variable 'syslog', and takes effect with 'syslog apply'.
)",
    "the address could not be stored", "", "  kestrova syslog set 10.0.2.2\n"};

inline constexpr HelpText kSyslogClearHelp = {
    "That none is stored is no failure. Takes effect with 'syslog apply'.\n",
    "the boot variables can't be read or saved", "", "  kestrova syslog clear\n"};

inline constexpr HelpText kSyslogApplyHelp = {
    R"(Ends syslogd and starts it again, with the stored address as its target, or
without one. Takes a second and more.
)",
    "the boot variables can't be read, or no new syslogd runs now", "",
    "  kestrova shell -e 'syslog set 10.0.2.2; syslog apply'\n"};

inline constexpr HelpText kProductionHelp = {
    "Removes the marker /settings/noptest.\n", "the marker could not be removed",
    "  3  the marker is not there\n", "  kestrova production\n"};

inline constexpr HelpText kShellHelp = {
    R"(Reads commands from standard input, or from -e, and runs them in one process,
the system being up between them. Commands end at ';' or the line's end; quotes,
backslash and '#' work as in a shell. 'help' and 'exit' are commands, too. A
line, or the whole of -e, is checked before the first of its commands runs.

From -e, a file or a pipe it ends at the first command that fails, with that
command's exit status; at a terminal it goes on, and ends with the status of the
last command. Drives that were started and not stopped stay mounted.
)",
    "failed, or Ctrl-C while something was waited for",
    "  N  that of the command with which it ended; 128 + N when signal N ended it\n",
    R"(  kestrova shell
  kestrova shell -e 'drive start; drive status; drive stop'
)"};

}  // namespace app

#endif
