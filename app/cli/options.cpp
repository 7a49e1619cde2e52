// SPDX-License-Identifier: MIT
#include "app/cli/options.h"

#include <cstdint>
#include <utility>

#include "app/cli/misuse.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

bool setLevel(Options& options, const std::string& value) {
    unsigned long level = 0;
    if (!parseNumber(value, UINT32_MAX, level)) {
        return false;
    }
    options.mLevel = static_cast<unsigned>(level);
    return true;
}

bool setScript(Options& options, const std::string& value) {
    options.mHasScript = true;
    options.mScript = value;
    return true;
}

bool setWait(Options& options, const std::string& value) {
    constexpr unsigned long longest = 86400;  // a day
    unsigned long seconds = 0;
    if (!parseNumber(value, longest, seconds)) {
        return false;
    }
    options.mHasWait = true;
    options.mWait = static_cast<unsigned>(seconds);
    return true;
}

template <bool Options::*flag>
bool setFlag(Options& options, const std::string& /*value*/) {
    options.*flag = true;
    return true;
}

template <std::string Options::*text>
bool setText(Options& options, const std::string& value) {
    options.*text = value;
    return !value.empty();
}

bool addLevel(Options& options, const std::string& /*value*/) {
    ++options.mLevel;
    return true;
}

/// Takes the words of one command apart.
class Parser {
public:
    Parser(const Words& words, const Source& source, Invocation& invocation, std::string& error)
        : mWords(words), mSource(source), mInvocation(invocation), mError(error) {}

    bool run() { return takeWords() && resolve() && checkOptions(); }

private:
    bool fail(const std::string& message) {
        mError = message;
        return false;
    }

    bool takeWords() {
        bool optionsEnded = false;
        while (mNext < mWords.size()) {
            const std::string& word = mWords[mNext++];
            if (optionsEnded || word.size() < 2 || word[0] != '-') {
                mPositional.push_back(word);
            } else if (word == "--") {
                optionsEnded = true;
            } else if (!(word[1] == '-' ? takeLong(word) : takeShort(word))) {
                return false;
            }
        }
        return true;
    }

    bool takeLong(const std::string& word) {
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        for (const OptionSpec& spec : optionSpecs()) {
            if (spec.mLong == nullptr || name != spec.mLong) {
                continue;
            }
            if (equals == std::string::npos) {
                return takeOption(spec, name, nullptr);
            }
            if (spec.mValue == nullptr) {
                return fail("option " + name + " takes no value: " + quoted(word));
            }
            const std::string value = word.substr(equals + 1);
            return takeOption(spec, name, &value);
        }
        return fail(unknownOption(name, mSource.mShell));
    }

    bool takeShort(const std::string& word) {
        // Letter by letter '-help' would run the commands 'lp', of 'shell -e'.
        for (const OptionSpec& spec : optionSpecs()) {
            if (spec.mLong != nullptr && word == spec.mLong + 1) {
                return fail(unknownOption(word, mSource.mShell));
            }
        }
        for (std::size_t position = 1; position < word.size(); ++position) {
            const OptionSpec* const spec = findShort(word[position]);
            if (spec == nullptr) {
                return fail(unknownOption(word, mSource.mShell));
            }
            const std::string name = {'-', word[position]};
            if (spec->mValue != nullptr && position + 1 < word.size()) {
                const std::string value = word.substr(position + 1);
                return takeOption(*spec, name, &value);
            }
            if (!takeOption(*spec, name, nullptr)) {
                return false;
            }
        }
        return true;
    }

    static const OptionSpec* findShort(char letter) {
        for (const OptionSpec& spec : optionSpecs()) {
            if (spec.mShort == letter) {
                return &spec;
            }
        }
        return nullptr;
    }

    /// `value` is null when it is not part of the option's word.
    bool takeOption(const OptionSpec& spec, const std::string& name, const std::string* value) {
        if (mSource.mShell && !spec.mInShell) {
            return fail("option " + name + " belongs to the start of kestrova, not into the shell");
        }
        if (spec.mValue != nullptr && value == nullptr) {
            if (mNext == mWords.size()) {
                return fail("option " + name + " needs a value: " + spec.mValue);
            }
            value = &mWords[mNext++];
        }
        const std::string given = value != nullptr ? *value : std::string();
        if (!spec.mSet(mInvocation.mOptions, given)) {
            return fail("option " + name + ": bad value " + quoted(given) + valueHint(spec));
        }
        mGiven.emplace_back(&spec, name);
        return true;
    }

    /// Finds the command that the positional words name.
    bool resolve() {
        if (!mPositional.empty() && mPositional[0] == "help") {
            mInvocation.mOptions.mHelp = true;
            mPositional.erase(mPositional.begin());
        }
        if (mInvocation.mOptions.mHelp || mInvocation.mOptions.mVersion) {
            return resolveTopic();
        }
        if (mPositional.empty()) {
            return fail("a command is missing" + commandsHint(mSource.mShell));
        }
        if (mSource.mShell && (mPositional[0] == "exit" || mPositional[0] == "quit")) {
            mInvocation.mExit = true;
            return mPositional.size() == 1 ||
                   fail(mPositional[0] + ": unexpected argument " + quoted(mPositional[1]));
        }
        std::size_t used = 0;
        mInvocation.mCommand = findCommand(mPositional, used);
        if (mInvocation.mCommand == nullptr) {
            return failUnknown();
        }
        const auto first = mPositional.begin() + static_cast<std::ptrdiff_t>(used);
        mInvocation.mArguments.assign(first, mPositional.end());
        return checkCommand();
    }

    bool resolveTopic() {
        std::size_t used = 0;
        if (mPositional.empty() || (mPositional.size() == 1 && isCommandGroup(mPositional[0]))) {
            mInvocation.mTopic = mPositional;
            return true;
        }
        const Command* const command = findCommand(mPositional, used);
        if (command == nullptr) {
            return failUnknown();
        }
        mInvocation.mTopic = {command->mName};
        return true;
    }

    bool failUnknown() { return fail(unknownCommand(mPositional, mSource.mShell)); }

    bool checkCommand() {
        const Command& command = *mInvocation.mCommand;
        if (command.mRun == nullptr && mSource.mShell) {
            return fail("there is no shell in the shell");
        }
        if (command.mReadsInput && mSource.mShell && mInvocation.mArguments.empty()) {
            return fail(std::string(command.mName) + ": in a shell, URLs are arguments");
        }
        std::string error = missingArgument(command, mInvocation.mArguments);
        if (error.empty() && command.mCheck != nullptr) {
            (void)command.mCheck(mInvocation.mArguments, error);
        }
        if (error.empty()) {
            error = unexpectedArgument(command, mInvocation.mArguments);
        }
        return error.empty() || fail(std::string(command.mName) + ": " + error);
    }

    bool checkOptions() {
        const Command* const command = mInvocation.mCommand;
        if (command == nullptr) {
            return true;
        }
        for (const auto& [spec, name] : mGiven) {
            if (spec->mCommandOption != 0 && (spec->mCommandOption & command->mOptions) == 0) {
                return fail(std::string(command->mName) + " has no option " + name +
                            optionsHint(command->mName, mSource.mShell));
            }
        }
        if (command->mDestroysData && !mInvocation.mOptions.mYes && !mInvocation.mOptions.mDryRun &&
            !mSource.mCanAsk) {
            return fail(std::string(command->mName) +
                        " destroys data, and there is no terminal to ask: --yes is needed");
        }
        return true;
    }

    const Words& mWords;
    const Source& mSource;
    Invocation& mInvocation;
    std::string& mError;
    std::size_t mNext = 0;
    Words mPositional;
    std::vector<std::pair<const OptionSpec*, std::string>> mGiven;
};

}  // namespace

const std::vector<OptionSpec>& optionSpecs() {
    static const std::vector<OptionSpec> specs = {
        {"--minimal", 0, nullptr, "bring the system up without any drive handling", 0, false,
         setFlag<&Options::mMinimal>},
        {nullptr, 'v', nullptr, "let the library tell more; twice for all", 0, false, addLevel},
        {"--level", 0, "N", "verbosity of the library: 0 (silent), 1, 2 ...", 0, false, setLevel},
        {"--json", 0, nullptr, "print one JSON document per command, on one line", 0, true,
         setFlag<&Options::mJson>},
        {"--help", 'h', nullptr, "show help, also for a single command", 0, true,
         setFlag<&Options::mHelp>},
        {"--version", 0, nullptr, "show the version", 0, false, setFlag<&Options::mVersion>},
        {"--yes", 'y', nullptr, "do not ask", eOptionYes, true, setFlag<&Options::mYes>},
        {"--no-wait", 0, nullptr, "in a shell: do not wait for the end, see 'drive watch'",
         eOptionNoWait, true, setFlag<&Options::mNoWait>},
        {"--dry-run", 0, nullptr, "only show what would be lost and what would be run",
         eOptionDryRun, true, setFlag<&Options::mDryRun>},
        {"--force", 0, nullptr, "destroy also what is not the recording drive's own", eOptionForce,
         true, setFlag<&Options::mForce>},
        {"--save-table", 0, "FILE", "save the old table in this new file", eOptionSaveTable, true,
         setText<&Options::mSaveTable>},
        {"--repair", 0, nullptr, "repair an XFS file system; it is only checked otherwise",
         eOptionRepair, true, setFlag<&Options::mRepair>},
        {"--wait", 0, "SECONDS", "wait while another process has the lock, up to 86400",
         eOptionWait, true, setWait},
        {"--in", 0, nullptr, "pass standard input on to the command", eOptionIn, false,
         setFlag<&Options::mIn>},
        {nullptr, 'e', "COMMANDS", "run these instead of reading standard input", eOptionExecute,
         false, setScript},
        {nullptr, 'o', "FILE", "write to this file instead of standard output", eOptionOutput, true,
         setText<&Options::mOutput>},
        {nullptr, 'd', "DIR", "save the documents in this folder", eOptionFolder, true,
         setText<&Options::mFolder>},
    };
    return specs;
}

bool parseCommand(const Words& words, const Source& source, Invocation& invocation,
                  std::string& error) {
    return Parser(words, source, invocation, error).run();
}

bool parseScript(std::string_view text, const Source& source, std::vector<Invocation>& invocations,
                 std::string& error) {
    std::vector<Words> split;
    if (!splitCommands(text, split, error)) {
        return false;
    }
    for (const Words& words : split) {
        Invocation invocation;
        if (!parseCommand(words, source, invocation, error)) {
            return false;
        }
        invocations.push_back(std::move(invocation));
    }
    return true;
}

}  // namespace app
