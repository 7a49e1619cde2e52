// SPDX-License-Identifier: MIT
#include "app/cli/misuse.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <vector>

#include "app/cli/commands.h"
#include "app/cli/help.h"
#include "app/cli/options.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

std::string called(const std::string& words, bool inShell) {
    return inShell ? "'" + words + "'" : "'kestrova " + words + "'";
}

/// How many letters have to be put in, left out, replaced or exchanged with their neighbour.
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

/// Collects the names that come nearest to what was typed.
class Nearest {
public:
    /// `name` is suggested when `typed` is spelt much like `word`, or begins it.
    void offer(const std::string& typed, const std::string& word, const std::string& name) {
        const bool begun = word.compare(0, typed.size(), typed) == 0 && word != typed;
        const std::size_t length = begun ? 1 : distance(typed, word);
        // Two or three letters resemble too much.
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

    /// "; do you mean 'vars set' or 'syslog set'?", or "".
    std::string question() const {
        std::string text;
        for (const std::string& name : mNames) {
            text += (text.empty() ? "; do you mean '" : " or '") + name + "'";
        }
        return text.empty() ? text : text + "?";
    }

private:
    std::size_t mLength = SIZE_MAX;
    std::vector<std::string> mNames;
};

std::vector<std::string> synopsisWords(const Command& command) {
    std::istringstream text(command.mArguments);
    std::vector<std::string> words;
    for (std::string word; text >> word;) {
        if (word != "--") {
            words.push_back(word);
        }
    }
    return words;
}

bool repeats(const std::string& word) {
    return word.find("...") != std::string::npos;
}

std::string usage(const Command& command) {
    return "; usage: " + usageText(command);
}

}  // namespace

std::string commandsHint(bool inShell) {
    return "; " + (inShell ? std::string("'help'") : called("--help", false)) +
           " lists the commands";
}

std::string optionsHint(const std::string& command, bool inShell) {
    return "; " + called(command + " --help", inShell) + " lists its options";
}

std::string valueHint(const OptionSpec& option) {
    return std::string("; it takes ") + option.mValue + ": " + option.mHelp;
}

std::string unknownCommand(const Words& words, bool inShell) {
    const std::string& first = words[0];
    const bool group = isCommandGroup(first);
    const std::string groupHint = "; " + called(first + " --help", inShell) + " lists the commands";
    if (group && words.size() == 1) {
        return first + ": a command is missing" + groupHint;
    }
    const bool single = words.size() == 1;
    const std::string two = single ? first : first + " " + words[1];
    Nearest nearest;
    nearest.offer(first, "help", "help");
    for (const Command& command : commands()) {
        const std::string name = command.mName;
        const std::size_t blank = name.find(' ');
        if (blank == std::string::npos) {
            nearest.offer(first, name, name);
            continue;
        }
        // Half a name may be the group; all the commands of it would be no suggestion.
        const std::string wanted = single ? name.substr(0, blank) : name;
        nearest.offer(two, wanted, wanted);
        if (!group) {
            nearest.offer(first, name.substr(blank + 1), name);
        }
    }
    const std::string question = nearest.question();
    if (!question.empty()) {
        return "unknown command " + quoted(group ? two : first) + question;
    }
    return group ? "unknown command " + quoted(two) + groupHint
                 : "unknown command " + quoted(first) + commandsHint(inShell);
}

std::string unknownOption(const std::string& word, bool inShell) {
    const bool oneDash = word[1] != '-';
    Nearest nearest;
    for (const OptionSpec& spec : optionSpecs()) {
        if (spec.mLong != nullptr) {
            nearest.offer(oneDash && word.size() > 2 ? "-" + word : word, spec.mLong, spec.mLong);
        }
    }
    const std::string question = nearest.question();
    if (!question.empty()) {
        return "unknown option " + quoted(word) + question;
    }
    if (oneDash) {
        return "unknown option " + quoted(word) +
               "; an argument that begins with '-' needs '--' in front";
    }
    return "unknown option " + quoted(word) + "; " + called("--help", inShell) +
           " lists the options";
}

std::string missingArgument(const Command& command, const Words& arguments) {
    std::size_t given = arguments.size();
    for (const std::string& word : synopsisWords(command)) {
        if (given == 0 && word[0] != '[') {
            return "argument " + word.substr(0, word.find("...")) + " is missing" + usage(command);
        }
        given -= given == 0 ? 0 : 1;
    }
    return {};
}

std::string unexpectedArgument(const Command& command, const Words& arguments) {
    const std::vector<std::string> words = synopsisWords(command);
    if ((!words.empty() && repeats(words.back())) || arguments.size() <= words.size()) {
        return {};
    }
    return "unexpected argument " + quoted(arguments[words.size()]) + usage(command);
}

}  // namespace app
