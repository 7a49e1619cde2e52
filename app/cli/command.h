// SPDX-License-Identifier: MIT
//
// A command of kestrova: its table row and its invocation. Parsing, help and running use the row,
// which is defined next to the code of its command.
#ifndef KESTROVA_APP_CLI_COMMAND_H
#define KESTROVA_APP_CLI_COMMAND_H

#include <optional>
#include <string>
#include <vector>

#include "app/cli/result.h"

namespace app {

class Session;
struct Invocation;

using Words = std::vector<std::string>;

/// Options that only some commands accept, as bits of Command::mOptions.
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
    eOptionFile = 2048,  ///< --file and --size
    eOptionReplace = 4096,
};

/// Requirements and effects of a command, as bits of Command::mTraits.
enum CommandTrait : unsigned {
    eNeedsDrive = 1,        ///< needs the drive; refused with --minimal
    eDestroysData = 2,      ///< asks for confirmation first
    eRunsBesideWork = 4,    ///< may run during a format, a mount or a check
    eReadsInput = 8,        ///< reads standard input if it has no arguments
    eReadsVariables = 16,   ///< holds a shared lock of the boot variables while it runs
    eWritesVariables = 32,  ///< holds an exclusive lock of the boot variables while it runs
    eRunsCommands = 64,     ///< runs other commands (the shell)
    eNeedsFile = 128,       ///< works on the file of --file only
    eFileIsArgument = 256,  ///< takes the file of --file as its first argument
};

struct Command {
    const char* mName;       ///< one word, or the name of a group and another word
    const char* mArguments;  ///< "" for none

    /// The help page, in lines of at most 80 columns: a summary line, an empty line, details, an
    /// empty line, "Exit status:" with 1 and those from 3, an empty line, and "Example:". Usage,
    /// options and the common statuses are added for display.
    const char* mHelp;

    unsigned mOptions;  ///< CommandOption bits
    unsigned mTraits;   ///< CommandTrait bits

    /// Runs the command.
    Result (*mRun)(Session& session, const Invocation& invocation);
    /// Checks the arguments without touching the machine. The number of arguments is at least the
    /// one in the row. Null if only their number needs a check.
    Result (*mCheck)(const Words& arguments) = nullptr;

    bool has(CommandTrait trait) const { return (mTraits & trait) != 0; }
};

struct Options {
    bool mMinimal = false;
    bool mJson = false;
    bool mYes = false;
    bool mNoWait = false;
    bool mRepair = false;
    bool mForce = false;
    bool mDryRun = false;
    bool mReplace = false;
    bool mIn = false;
    unsigned mLevel = 0;                 ///< value of --level, and one more for each -v
    std::optional<unsigned> mWait;       ///< value of --wait, in seconds
    std::optional<std::string> mScript;  ///< value of -e
    std::string mOutput;                 ///< value of -o, never empty when given
    std::string mFolder;                 ///< value of -d, never empty when given
    std::string mFile;                   ///< value of --file, never empty when given
    std::optional<unsigned> mSize;       ///< value of --size, in bytes
    std::string mSaveTable;              ///< value of --save-table, never empty when given
};

/// A parsed command with its arguments and options.
struct Invocation {
    const Command* mCommand = nullptr;  ///< null for help, version and exit
    Words mArguments;
    Options mOptions;
    std::string mAnswer;  ///< text of --help or --version, printed instead of running a command
};

}  // namespace app

#endif
