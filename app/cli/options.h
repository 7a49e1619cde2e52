// SPDX-License-Identifier: MIT
//
// From words to a command with its options.
#ifndef KESTROVA_APP_CLI_OPTIONS_H
#define KESTROVA_APP_CLI_OPTIONS_H

#include <string>
#include <vector>

#include "app/cli/commands.h"
#include "app/cli/line.h"

namespace app {

struct Options {
    bool mMinimal = false;
    unsigned mLevel = 0;
    bool mJson = false;
    bool mHelp = false;
    bool mVersion = false;
    bool mYes = false;
    bool mNoWait = false;
    bool mRepair = false;
    bool mForce = false;
    bool mDryRun = false;
    bool mIn = false;
    bool mHasWait = false;
    unsigned mWait = 0;  ///< value of --wait, in seconds
    bool mHasScript = false;
    std::string mScript;     ///< value of -e
    std::string mOutput;     ///< value of -o, never empty when given
    std::string mFolder;     ///< value of -d, never empty when given
    std::string mSaveTable;  ///< value of --save-table, never empty when given
};

/// One command as it was asked for.
struct Invocation {
    const Command* mCommand = nullptr;  ///< null for help and exit
    Words mArguments;
    Options mOptions;
    Words mTopic;        ///< with --help: what about
    bool mExit = false;  ///< the shell's "exit"
};

/// One row of the table of options.
struct OptionSpec {
    const char* mLong;
    char mShort;         ///< 0 for none
    const char* mValue;  ///< name of its value, or null
    const char* mHelp;
    unsigned mCommandOption;  ///< the CommandOption bit, or 0 for an option of every command
    bool mInShell;            ///< may be given to a single command of a shell
    bool (*mSet)(Options& options, const std::string& value);
};

const std::vector<OptionSpec>& optionSpecs();

/// Who gave the words.
struct Source {
    bool mShell;   ///< a line of a shell, not the arguments of the process
    bool mCanAsk;  ///< a person is there to answer a question
};

/// Parses the words of one command and checks everything that can be checked without a look at the
/// machine. False with a message that names what is wrong.
bool parseCommand(const Words& words, const Source& source, Invocation& invocation,
                  std::string& error);

/// Parses all commands of a shell's text; false with a message at the first that is wrong.
bool parseScript(std::string_view text, const Source& source, std::vector<Invocation>& invocations,
                 std::string& error);

}  // namespace app

#endif
