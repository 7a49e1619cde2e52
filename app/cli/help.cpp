// SPDX-License-Identifier: MIT
#include "app/cli/help.h"

#include <algorithm>
#include <cstring>

#include "app/cli/commands.h"
#include "app/cli/helptexts.h"
#include "app/cli/options.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

std::string optionNames(const OptionSpec& spec) {
    std::string names;
    if (spec.mShort != 0) {
        names = {'-', spec.mShort};
    }
    if (spec.mLong != nullptr) {
        names += names.empty() ? "    " : ", ";
        names += spec.mLong;
    }
    if (spec.mValue != nullptr) {
        names += std::string(" ") + spec.mValue;
    }
    return names;
}

/// The options among these bits; the general ones for 0.
std::string optionList(unsigned bits) {
    constexpr std::size_t width = 23;
    std::string text;
    for (const OptionSpec& spec : optionSpecs()) {
        if (bits == 0 ? spec.mCommandOption == 0 : (spec.mCommandOption & bits) != 0) {
            text += "  " + padded(optionNames(spec), width) + spec.mHelp + "\n";
        }
    }
    return text;
}

std::string commandList(const std::string& prefix) {
    constexpr std::size_t width = 27;
    std::string text;
    for (const Command& command : commands()) {
        if (std::string(command.mName).rfind(prefix, 0) == 0) {
            text += "  " + padded(synopsis(command), width) + command.mSummary + "\n";
        }
    }
    return text;
}

/// What the commands of a group have in common; "" is the prefix of all.
const char* groupSummary(const std::string& prefix) {
    if (prefix.empty()) {
        return "The system services of the media client, from the command line.\n";
    }
    const bool drive = std::any_of(commands().begin(), commands().end(), [&](const Command& each) {
        return each.mNeedsDrive && std::string(each.mName).rfind(prefix, 0) == 0;
    });
    return drive ? "The commands info, status and watch only look. The others bring the drive up,\n"
                   "which unmounts its file systems.\n"
                 : "None of these needs the recording drive, which is left alone.\n";
}

/// Exit status 1 means something else for each; from 3 on most have none.
std::string statusList(const char* failed, const char* others) {
    return std::string("\nExit status:\n  0  done\n  1  ") + failed +
           "\n  2  misused; nothing was touched\n" + others;
}

constexpr char kLockStatuses[] =
    "  6  cancelled by Ctrl-C\n"
    "  7  another process has the lock; nothing was touched\n";

/// A usage in lines that fit the console of a box, cut before words and options.
std::string wrapped(const std::string& usage) {
    constexpr std::size_t width = 80;
    const std::string indent(std::strlen("Usage: "), ' ');
    std::string text;
    std::string line;
    for (std::size_t begin = 0; begin < usage.size();) {
        std::size_t end = usage.find(' ', begin);
        if (usage[begin] == '[') {
            end = usage.find(' ', usage.find(']', begin));
        }
        end = std::min(end, usage.size());
        const std::string word = usage.substr(begin, end - begin);
        if (!line.empty() && line.size() + 1 + word.size() > width) {
            text += line + "\n";
            line = indent + word;
        } else {
            line += (line.empty() ? "" : " ") + word;
        }
        begin = end + 1;
    }
    return text + line;
}

std::string commandHelp(const Command& command) {
    const HelpText& help = command.mHelp;
    std::string text = wrapped("Usage: kestrova [OPTION...] " + usageText(command)) + "\n\n";
    text += std::string(command.mSummary) + "\n\n" + help.mMore;
    if (command.mOptions != 0) {
        text += "\nOptions of this command:\n" + optionList(command.mOptions);
    }
    text += "\nOptions:\n" + optionList(0) + statusList(help.mFailed, help.mStatuses);
    if (command.mRun != nullptr && (command.mOptions & eOptionWait) != 0) {
        text += kLockStatuses;
    }
    return text + "\nExample:\n" + help.mExamples;
}

/// "" is the prefix of all commands.
const char* groupExample(const std::string& prefix) {
    if (prefix.empty()) {
        return "  kestrova drive info\n  kestrova shell -e 'drive start; drive status; drive "
               "stop'\n";
    }
    return std::find_if(
               commands().begin(), commands().end(),
               [&](const Command& each) { return std::string(each.mName).rfind(prefix, 0) == 0; })
        ->mHelp.mExamples;
}

}  // namespace

std::string synopsis(const Command& command) {
    std::string text = command.mName;
    if (*command.mArguments != '\0') {
        text += std::string(" ") + command.mArguments;
    }
    return text;
}

std::string usageText(const Command& command) {
    std::string text = command.mName;
    for (const OptionSpec& spec : optionSpecs()) {
        if ((spec.mCommandOption & command.mOptions) != 0) {
            text += " [";
            text += spec.mLong != nullptr ? std::string(spec.mLong) : std::string{'-', spec.mShort};
            text += spec.mValue != nullptr ? std::string(" ") + spec.mValue + "]" : "]";
        }
    }
    return *command.mArguments != '\0' ? text + " " + command.mArguments : text;
}

std::string helpText(const Words& topic) {
    if (!topic.empty() && !isCommandGroup(topic[0])) {
        for (const Command& command : commands()) {
            if (topic[0] == command.mName) {
                return commandHelp(command);
            }
        }
    }
    const std::string prefix = topic.empty() ? "" : topic[0] + " ";
    std::string text = "Usage: kestrova [OPTION...] " + prefix + "COMMAND [ARGUMENT...]\n\n";
    text += groupSummary(prefix);
    text += "\nCommands:\n" + commandList(prefix) + "\nOptions:\n" + optionList(0);
    text += statusList("failed; standard error tells why",
                       "  3  absent: nothing is wrong, but what was asked for is not there\n"
                       "  4, 5  refused, broken off (fetch)\n"
                       "  6  cancelled by Ctrl-C (fetch, fetch-all, vars, syslog)\n"
                       "  7  busy: another process has the lock; nothing was touched\n"
                       "  'run' exits as the command that it ran.\n");
    text += std::string("\nExample:\n") + groupExample(prefix);
    return text + "\n'kestrova " + prefix + "COMMAND --help' tells more about a command.\n";
}

}  // namespace app
