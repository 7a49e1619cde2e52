// SPDX-License-Identifier: MIT
//
// The table of commands. Help, parsing and running all go by it.
#ifndef KESTROVA_APP_CLI_COMMANDS_H
#define KESTROVA_APP_CLI_COMMANDS_H

#include <string>
#include <vector>

#include "app/cli/line.h"
#include "app/cli/result.h"

namespace app {

class Session;
struct HelpText;
struct Invocation;

/// Options that some commands take, as bits of Command::mOptions.
enum CommandOption : unsigned {
    eOptionYes = 1,
    eOptionNoWait = 2,
    eOptionExecute = 4,
    eOptionOutput = 8,
    eOptionFolder = 16,
    eOptionIn = 32,
    eOptionRepair = 64,
    eOptionWait = 128,
    eOptionForce = 256,
    eOptionDryRun = 512,
    eOptionSaveTable = 1024,
};

/// The lock of the boot variables that a command holds while it runs.
enum class VariablesLock {
    eNone,
    eReading,
    eWriting,
};

struct Command {
    const char* mName;       ///< one word, or a group's and another one
    const char* mArguments;  ///< as the synopsis shows them, "" for none
    const char* mSummary;    ///< one line
    const HelpText& mHelp;
    unsigned mOptions;     ///< CommandOption bits
    bool mNeedsDrive;      ///< needs the full system
    bool mDestroysData;    ///< asks before it runs
    bool mRunsBesideWork;  ///< may be run while a format or a mount is under way

    /// Checks the arguments, without any look at the machine; false with a message. There are no
    /// fewer than the synopsis has. Null when their number is all that can be checked.
    bool (*mCheck)(const Words& arguments, std::string& error);
    /// Runs it. Null for the shell, which is no command of a session but its reader.
    Result (*mRun)(Session& session, const Invocation& invocation);
    /// Reads standard input when it has no arguments; a shell may need that for its commands.
    bool mReadsInput = false;
    /// A command with a lock has the option eOptionWait.
    VariablesLock mVariablesLock = VariablesLock::eNone;
};

/// All commands, in the order of the help.
const std::vector<Command>& commands();

/// The command that a list of words begins with, or null. `used` is how many words its name has.
const Command* findCommand(const Words& words, std::size_t& used);

/// True when a command's name begins with this word and goes on, as "drive" does.
bool isCommandGroup(const std::string& word);

Result runTable(Session& session, const Invocation& invocation);

Result runDriveInfo(Session& session, const Invocation& invocation);
Result runDriveStatus(Session& session, const Invocation& invocation);
Result runDrivePartition(Session& session, const Invocation& invocation);
Result runDriveStop(Session& session, const Invocation& invocation);
Result runDriveSpinDown(Session& session, const Invocation& invocation);
Result runDriveSpinUp(Session& session, const Invocation& invocation);

Result runDriveFormat(Session& session, const Invocation& invocation);
Result runDriveStart(Session& session, const Invocation& invocation);
Result runDriveCheck(Session& session, const Invocation& invocation);
Result runDriveWith(Session& session, const Invocation& invocation);
Result runDriveWatch(Session& session, const Invocation& invocation);

Result runVarsList(Session& session, const Invocation& invocation);
Result runVarsGet(Session& session, const Invocation& invocation);
Result runVarsGetBinary(Session& session, const Invocation& invocation);
Result runVarsSet(Session& session, const Invocation& invocation);
Result runVarsSetBinary(Session& session, const Invocation& invocation);
Result runVarsClear(Session& session, const Invocation& invocation);
Result runVarsVerify(Session& session, const Invocation& invocation);

Result runFetch(Session& session, const Invocation& invocation);
Result runFetchAll(Session& session, const Invocation& invocation);

Result runRun(Session& session, const Invocation& invocation);
Result runSerialCount(Session& session, const Invocation& invocation);
Result runSerialLogin(Session& session, const Invocation& invocation);
Result runSyslogShow(Session& session, const Invocation& invocation);
Result runSyslogSet(Session& session, const Invocation& invocation);
Result runSyslogClear(Session& session, const Invocation& invocation);
Result runSyslogApply(Session& session, const Invocation& invocation);
Result runProduction(Session& session, const Invocation& invocation);

/// One to four SIZE arguments.
bool checkSizes(const Words& arguments, std::string& error);
/// A PARTITION argument: its index, or a device node.
bool checkPartition(const Words& arguments, std::string& error);
bool checkNewName(const Words& arguments, std::string& error);
bool checkRun(const Words& arguments, std::string& error);
bool checkPort(const Words& arguments, std::string& error);
bool checkAddress(const Words& arguments, std::string& error);
bool checkUrls(const Words& arguments, std::string& error);

}  // namespace app

#endif
