// SPDX-License-Identifier: MIT
#include "app/cli/misuse.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <vector>

#include "app/cli/help.h"
#include "app/commands/commands.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

std::string called(const std::string& words, bool inShell) {
    return inShell ? "'" + words + "'" : "'kestrova " + words + "'";
}

/// Number of letters to insert, delete, replace or swap with their neighbour.
std::size_t distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> before;
    std::vector<std::size_t> last;
    std::vector<std::size_t> row(other.size() + 1);
    for (std::size_t j = 0; j < row.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= one.size(); ++i) {
        before = last;
        last = row;
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t changed = one[i - 1] == other[j - 1] ? 0 : 1;
            row[j] = std::min({row[j - 1] + 1, last[j] + 1, last[j - 1] + changed});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
    }
    return row[other.size()];
}

/// Collects the names that are most similar to the typed word.
class Nearest {
public:
    /// Suggests `name` if `typed` is similar to `word` or is a prefix of it.
    void offer(const std::string& typed, const std::string& word, const std::string& name) {
        const bool begun = word.compare(0, typed.size(), typed) == 0 && word != typed;
        const std::size_t length = begun ? 1 : distance(typed, word);
        // One or two letters are too short to suggest a match.
        const bool alike = begun ? typed.size() > 2 : length <= typed.size() / 4;
        if (!alike || length > mLength) {
            return;
        }
        if (length < mLength) {
            mNames.clear();
            mLength = length;
        }
        if (std::find(mNames.begin(), mNames.end(), name) == mNames.end()) {
            mNames.push_back(name);
        }
    }

    /// Returns "; do you mean 'vars set' or 'syslog set'?", or `other` if no name is similar.
    std::string questionOr(const std::string& other) const {
        std::string text;
        for (const std::string& name : mNames) {
            text += (text.empty() ? "; do you mean '" : " or '") + name + "'";
        }
        return text.empty() ? other : text + "?";
    }

private:
    std::size_t mLength = SIZE_MAX;
    std::vector<std::string> mNames;
};

/// Returns the names of the command's arguments.
Words argumentNames(const Command& command) {
    std::istringstream text(command.mArguments);
    Words names;
    for (std::string name; text >> name;) {
        if (name != "--") {
            names.push_back(name);
        }
    }
    return names;
}

std::string commandsHint(const std::string& group, bool inShell) {
    const std::string page = group.empty() ? "--help" : group + " --help";
    return "; " + called(inShell && group.empty() ? "help" : page, inShell) + " lists the commands";
}

}  // namespace

std::string optionsHint(const std::string& name, bool inShell) {
    return "; " + called(name.empty() ? "--help" : name + " --help", inShell) +
           " lists the options";
}

std::string unknownCommand(const Words& words, bool inShell) {
    const std::string& first = words[0];
    const bool inGroup = isCommandGroup(first);
    const std::string both = words.size() == 1 ? first : first + " " + words[1];
    Nearest nearest;
    nearest.offer(first, "help", "help");
    for (const Command* const command : commands()) {
        const std::string name = command->mName;
        const std::size_t blank = name.find(' ');
        if (blank == std::string::npos) {
            nearest.offer(first, name, name);
            continue;
        }
        // A single word may be a misspelt group; suggesting all its commands would not help.
        const std::string wanted = words.size() == 1 ? name.substr(0, blank) : name;
        nearest.offer(both, wanted, wanted);
        if (!inGroup) {
            nearest.offer(first, name.substr(blank + 1), name);
        }
    }
    return "unknown command " + quoted(inGroup ? both : first) +
           nearest.questionOr(commandsHint(inGroup ? first : "", inShell));
}

std::string missingCommand(const std::string& group, bool inShell) {
    return (group.empty() ? "" : group + ": ") + "a command is missing" +
           commandsHint(group, inShell);
}

std::string unknownOption(const std::string& word, const Words& known, const std::string& name,
                          bool inShell) {
    const std::string option = word.substr(0, word.find('='));
    const bool oneDash = option[1] != '-';
    Nearest nearest;
    for (const std::string& candidate : known) {
        nearest.offer(oneDash && option.size() > 2 ? "-" + option : option, candidate, candidate);
    }
    return "unknown option " + quoted(option) +
           nearest.questionOr(oneDash ? "; an argument that begins with '-' needs '--' in front"
                                      : optionsHint(name, inShell));
}

Result checkArguments(const Command& command, const Words& arguments) {
    const Words names = argumentNames(command);
    const std::string usage = "; usage: " + synopsis(command);
    const std::size_t given = arguments.size();
    if (given < names.size() && names[given][0] != '[') {
        const std::string name = names[given].substr(0, names[given].find("..."));
        return Result::misused("argument " + name + " is missing" + usage);
    }
    Result result = command.mCheck != nullptr ? command.mCheck(arguments) : Result();
    const bool repeats = !names.empty() && names.back().find("...") != std::string::npos;
    if (result.good() && !repeats && given > names.size()) {
        return Result::misused("unexpected argument " + quoted(arguments[names.size()]) + usage);
    }
    return result;
}

}  // namespace app
