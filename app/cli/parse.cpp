// SPDX-License-Identifier: MIT
//
// The only file that includes CLI11, because it takes long to compile.
#include "app/cli/parse.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

#include "app/cli/help.h"
#include "app/cli/misuse.h"
#include "app/cli/shellwords.h"
#include "app/commands/commands.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

bool isOption(const std::string& word) {
    return word.size() > 1 && word[0] == '-';
}

/// Adds an option whose value is a decimal number up to a limit.
template <class Number>
CLI::Option* addNumber(CLI::App& app, const char* name, Number& number, unsigned long limit,
                       const char* help) {
    const auto convert = [&number, name, limit](const CLI::results_t& given) {
        unsigned long value = 0;
        if (!readDecimal(given.back(), limit, value)) {
            throw CLI::ValidationError(
                name,
                app::quoted(given.back()) + " is not a number from 0 to " + std::to_string(limit));
        }
        number = static_cast<unsigned>(value);
        return true;
    };
    return app.add_option(name, convert, help);
}

/// Sizes of an environment file in bytes, as the box accepts them.
constexpr unsigned kSmallestEnvironment = 12;
constexpr unsigned long kLargestEnvironment = 65536;

/// Options that are not available within a shell.
constexpr const char* kStartOptions[] = {"--minimal", "-v", "--level", "--version", "--in"};

/// Parses one command. CLI11 parses options and finds the command. The arguments are the remaining
/// words, because CLI11 would split an argument of its own such as "[a,b]".
class Parser {
public:
    Parser(const Source& source, Invocation& invocation)
        : mSource(source), mInvocation(invocation), mOptions(invocation.mOptions) {}

    Result parse(const Words& words) {
        const auto end = std::find(words.begin(), words.end(), "--");
        mArguments.assign(end == words.end() ? end : end + 1, words.end());
        Words optionsAndNames(words.begin(), end);
        describe(optionsAndNames);
        if (Result mistyped = mistypedLongOption(optionsAndNames); !mistyped.good()) {
            return mistyped;
        }
        std::reverse(optionsAndNames.begin(), optionsAndNames.end());  // the order that CLI11
                                                                       // expects
        try {
            mRoot.parse(std::move(optionsAndNames));
        } catch (const CLI::CallForHelp&) {
            return help();
        } catch (const CLI::CallForVersion& version) {
            mInvocation.mAnswer = std::string(version.what()) + "\n";
            return {};
        } catch (const CLI::ParseError& error) {
            findSelected();
            return Result::misused(printable(error.what()) + optionsHint(mName, mSource.mShell));
        }
        findSelected();
        if (mName == "help") {
            Words topic = mRoot.remaining(true);
            topic.emplace_back("--help");
            return parseCommand(topic, mSource, mInvocation);
        }
        return resolve();
    }

private:
    static constexpr char kGeneralOptions[] = "Options";
    static constexpr char kCommandOptions[] = "Options of this command";

    /// Describes the commands that the words can mean to CLI11. Describing all commands would take
    /// longer than most commands run.
    void describe(const Words& words) {
        const auto given = [&words](const std::string& name) {
            return std::find(words.begin(), words.end(), name) != words.end();
        };
        mRoot.require_subcommand(0, 1)->allow_extras()->set_help_flag();
        mRoot.option_defaults()
            ->group(kGeneralOptions)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        mRoot.add_subcommand("help")->prefix_command();
        if (mSource.mShell) {
            mRoot.add_subcommand("exit");
            mRoot.add_subcommand("quit");
        }
        addGeneralOptions(mRoot);
        CLI::App* group = nullptr;
        for (const Command* const command : commands()) {
            const std::string name = command->mName;
            const std::string first = name.substr(0, name.find(' '));
            if (!given(first)) {
                continue;
            }
            if (first == name) {
                addCommand(mRoot, *command, name);
                continue;
            }
            if (group == nullptr || group->get_name() != first) {
                group = mRoot.add_subcommand(first)->require_subcommand(0, 1);
                // The same for all commands of a group, because it can precede their names.
                group->option_defaults()->group(kCommandOptions);
                addCommandOptions(*group, command->mOptions & eOptionFile);
                group->option_defaults()->group(kGeneralOptions);
                addGeneralOptions(*group);
            }
            const std::string second = name.substr(first.size() + 1);
            if (given(second)) {
                addCommand(*group, *command, second);
            }
        }
    }

    /// Each command has the general options as well, so that they can be before and after its name.
    void addGeneralOptions(CLI::App& app) {
        mApps.push_back(&app);
        if (!mSource.mShell) {
            addFlag(app, "--minimal", mOptions.mMinimal,
                    "bring the system up without any drive handling");
            app.add_flag_function(
                "-v", [this](std::int64_t count) { mVerbosity += static_cast<unsigned>(count); },
                "let the library log more; twice for all");
            addNumber(app, "--level", mOptions.mLevel, UINT32_MAX,
                      "verbosity of the library: 0 (silent), 1, 2 ...")
                ->type_name("N");
        }
        addFlag(app, "--json", mOptions.mJson, "print one JSON document per command, on one line");
        app.set_help_flag("-h,--help", "show help, also for a single command");
        if (!mSource.mShell) {
            app.set_version_flag("--version", "kestrova " KESTROVA_VERSION, "show the version");
        }
    }

    void addCommand(CLI::App& parent, const Command& command, const std::string& name) {
        CLI::App& app = *parent.add_subcommand(name);
        app.option_defaults()->group(kCommandOptions);
        addCommandOptions(app, command.mOptions);
        app.option_defaults()->group(kGeneralOptions);
        addGeneralOptions(app);
    }

    static void addFlag(CLI::App& app, const char* names, bool& flag, const char* help) {
        app.add_flag(names, flag, help)->disable_flag_override();
    }

    static void addText(CLI::App& app, const char* names, std::string& text, const char* value,
                        const char* help) {
        app.add_option(names, text, help)->type_name(value)->check([](const std::string& given) {
            return given.empty() ? "it is empty" : "";
        });
    }

    void addCommandOptions(CLI::App& app, unsigned options) {
        const auto has = [options](CommandOption option) { return (options & option) != 0; };
        if (has(eOptionYes)) {
            addFlag(app, "-y,--yes", mOptions.mYes, "do not ask");
        }
        if (has(eOptionNoWait)) {
            addFlag(app, "--no-wait", mOptions.mNoWait,
                    "in a shell: do not wait for the end, see 'drive watch'");
        }
        if (has(eOptionDryRun)) {
            addFlag(app, "--dry-run", mOptions.mDryRun,
                    "only show what would be lost and what would be run");
        }
        if (has(eOptionForce)) {
            addFlag(app, "--force", mOptions.mForce,
                    "destroy also what is not the recording drive's own");
        }
        if (has(eOptionSaveTable)) {
            addText(app, "--save-table", mOptions.mSaveTable, "FILE",
                    "save the old table in this new file");
        }
        if (has(eOptionRepair)) {
            addFlag(app, "--repair", mOptions.mRepair,
                    "repair an XFS file system; it is only checked otherwise");
        }
        if (has(eOptionReplace)) {
            addFlag(app, "--replace", mOptions.mReplace, "replace an existing file");
        }
        if (has(eOptionFile)) {
            addText(app, "--file", mOptions.mFile, "ENVFILE",
                    "work on this file, not on the box's variables");
            addNumber(app, "--size", mOptions.mSize, kLargestEnvironment,
                      "with --file: largest size of the file, 12 to 65536")
                ->type_name("BYTES");
        }
        if (has(eOptionWait)) {
            constexpr unsigned long longest = 86400;  // a day
            addNumber(app, "--wait", mOptions.mWait, longest,
                      "wait while another process has the lock, up to 86400")
                ->type_name("SECONDS");
        }
        if (has(eOptionIn) && !mSource.mShell) {
            addFlag(app, "--in", mOptions.mIn, "pass standard input on to the command");
        }
        if (has(eOptionExecute)) {
            app.add_option("-e", mOptions.mScript, "run these instead of reading standard input")
                ->type_name("COMMANDS");
        }
        if (has(eOptionOutput)) {
            addText(app, "-o", mOptions.mOutput, "FILE",
                    "write to this file instead of standard output");
        }
        if (has(eOptionFolder)) {
            addText(app, "-d", mOptions.mFolder, "DIR", "save the documents in this folder");
        }
    }

    /// Reports a long option with a single dash, such as "-help", which CLI11 would parse letter by
    /// letter.
    Result mistypedLongOption(const Words& words) const {
        Words names;
        for (const CLI::App* const app : mApps) {
            addLongNames(*app, names);
        }
        for (const std::string& word : words) {
            if (isOption(word) &&
                std::find(names.begin(), names.end(), "-" + word) != names.end()) {
                return Result::misused(unknownOption(word, names, {}, mSource.mShell));
            }
        }
        return {};
    }

    static void addLongNames(const CLI::App& app, Words& names) {
        for (const CLI::Option* const option : app.get_options()) {
            for (const std::string& name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    }

    /// Finds the command or group that the words name.
    void findSelected() {
        mSelected = &mRoot;
        while (!mSelected->get_subcommands().empty()) {
            mSelected = mSelected->get_subcommands().front();
            mName += (mName.empty() ? "" : " ") + mSelected->get_name();
        }
        mInvocation.mCommand = findCommand(mName);
    }

    /// Reports the words that CLI11 did not parse, except the arguments after "--".
    Result unknownWords() const {
        const Words words = mRoot.remaining(true);
        const auto name = std::find_if_not(words.begin(), words.end(), isOption);
        if (mInvocation.mCommand == nullptr && name != words.end()) {
            Words names(name, words.end());
            if (!mName.empty()) {
                names.insert(names.begin(), mName);
            }
            return Result::misused(unknownCommand(names, mSource.mShell));
        }
        const auto option = std::find_if(words.begin(), words.end(), isOption);
        if (option == words.end()) {
            return {};
        }
        if (mSource.mShell && std::find(std::begin(kStartOptions), std::end(kStartOptions),
                                        *option) != std::end(kStartOptions)) {
            return Result::misused("option " + *option +
                                   " belongs to the start of kestrova, not into the shell");
        }
        Words known;
        addLongNames(*mSelected, known);
        if (std::find(known.begin(), known.end(), *option) != known.end()) {
            return Result::misused("option " + *option + " stands after the command: " + mName +
                                   " " + *option);
        }
        return Result::misused(unknownOption(*option, known, mName, mSource.mShell));
    }

    /// Returns a section of the help page. CLI11's own formatter depends on its version.
    std::string optionList(const std::string& group) const {
        constexpr std::size_t width = 23;
        std::string list;
        for (const CLI::Option* const option : mSelected->get_options()) {
            if (option->get_group() == group) {
                const bool hasValue = option->get_expected_max() != 0;
                list += "  " +
                        padded(option->get_name(false, true) +
                                   (hasValue ? " " + option->get_type_name() : ""),
                               width) +
                        option->get_description() + "\n";
            }
        }
        return list.empty() ? "" : "\n" + group + ":\n" + list;
    }

    Result help() {
        findSelected();
        if (mInvocation.mCommand == nullptr) {
            if (Result unknown = unknownWords(); !unknown.good()) {
                return unknown;
            }
        }
        mInvocation.mAnswer = helpBeforeOptions(mName) + optionList(kCommandOptions) +
                              optionList(kGeneralOptions) + helpAfterOptions(mName);
        mInvocation.mCommand = nullptr;
        return {};
    }

    Result resolve() {
        if (mName == "exit" || mName == "quit") {
            const Words words = mRoot.remaining(true);
            return words.empty() ? Result()
                                 : Result::misused(mName + ": unexpected argument " +
                                                   app::quoted(words.front()));
        }
        if (Result unknown = unknownWords(); !unknown.good()) {
            return unknown;
        }
        if (mInvocation.mCommand == nullptr) {
            return Result::misused(missingCommand(mName, mSource.mShell));
        }
        mOptions.mLevel += mVerbosity;
        mInvocation.mArguments = mRoot.remaining(true);
        mInvocation.mArguments.insert(mInvocation.mArguments.end(), mArguments.begin(),
                                      mArguments.end());
        if (mInvocation.mCommand->has(eFileIsArgument) && !mOptions.mFile.empty()) {
            mInvocation.mArguments.insert(mInvocation.mArguments.begin(), mOptions.mFile);
        }
        return checkCommand(*mInvocation.mCommand);
    }

    Result checkCommand(const Command& command) const {
        if (mSource.mShell && command.has(eRunsCommands)) {
            return Result::misused("there is no shell in the shell");
        }
        Result result = checkArguments(command, mInvocation.mArguments);
        if (result.good()) {
            result = checkFile(command);
        }
        if (result.good() && mSource.mShell && command.has(eReadsInput) &&
            mInvocation.mArguments.empty()) {
            result = Result::misused("in a shell, URLs are arguments");
        }
        if (result.good() && command.has(eDestroysData) && !mOptions.mYes && !mOptions.mDryRun &&
            !mSource.mCanAsk) {
            result = Result::misused(
                "data would be destroyed, and there is no terminal to ask: --yes is needed");
        }
        if (!result.good()) {
            result.mError = mName + ": " + result.mError;
        }
        return result;
    }

    Result checkFile(const Command& command) const {
        if (command.has(eNeedsFile) && mOptions.mFile.empty()) {
            return Result::misused("--file ENVFILE is needed");
        }
        if (mOptions.mSize && mOptions.mFile.empty()) {
            return Result::misused("--size goes with --file ENVFILE");
        }
        return !mOptions.mSize || *mOptions.mSize >= kSmallestEnvironment
                   ? Result()
                   : Result::misused("--size: " + std::to_string(*mOptions.mSize) +
                                     " is not from 12 to 65536");
    }

    const Source& mSource;
    Invocation& mInvocation;
    Options& mOptions;
    CLI::App mRoot;
    std::vector<const CLI::App*> mApps;
    const CLI::App* mSelected = nullptr;
    std::string mName;  // of the command or group
    Words mArguments;   // after "--"
    unsigned mVerbosity = 0;
};

}  // namespace

Result parseCommand(const Words& words, const Source& source, Invocation& invocation) {
    return Parser(source, invocation).parse(words);
}

Result parseScript(std::string_view text, bool canAsk, std::vector<Invocation>& invocations) {
    std::vector<Words> commands;
    Result result = splitCommands(text, commands);
    for (auto words = commands.begin(); result.good() && words != commands.end(); ++words) {
        Invocation invocation;
        result = parseCommand(*words, {true, canAsk}, invocation);
        invocations.push_back(std::move(invocation));
    }
    return result;
}

}  // namespace app
