// SPDX-License-Identifier: MIT
#include "app/help.h"

#include <algorithm>

#include "app/commands.h"
#include "app/options.h"
#include "app/text.h"

namespace app {

namespace {

std::string synopsis(const Command& command) {
    std::string text = command.mName;
    if (*command.mArguments != '\0') {
        text += std::string(" ") + command.mArguments;
    }
    return text;
}

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
    constexpr std::size_t width = 16;
    std::string text;
    for (const OptionSpec& spec : optionSpecs()) {
        if (bits == 0 ? spec.mCommandOption == 0 : (spec.mCommandOption & bits) != 0) {
            text += "  " + padded(optionNames(spec), width) + spec.mHelp + "\n";
        }
    }
    return text;
}

std::string commandList(const std::string& prefix) {
    constexpr std::size_t width = 28;
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
    return drive ? "A full start of the system, which all of these need, unmounts the recording "
                   "drive.\n"
                 : "None of these needs the recording drive, which is left alone.\n";
}

std::string commandHelp(const Command& command) {
    std::string text = "Usage: kestrova [OPTION...] " + synopsis(command) + "\n\n";
    text += std::string(command.mSummary) + "\n";
    if (*command.mHelp != '\0') {
        text += std::string("\n") + command.mHelp;
    }
    if (command.mOptions != 0) {
        text += "\nOptions of this command:\n" + optionList(command.mOptions);
    }
    return text + "\nOptions:\n" + optionList(0);
}

}  // namespace

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
    return text + "\nExit status: 0 done, 1 failed, 2 misused (nothing was touched), 3 absent,\n" +
           "4 refused, 5 broken, 6 cancelled.\n" +
           "'kestrova COMMAND --help' tells more about a command.\n";
}

}  // namespace app
