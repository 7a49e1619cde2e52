// SPDX-License-Identifier: MIT
#include "app/cli/help.h"

#include <cstring>

#include "app/commands/commands.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

bool isInGroup(const Command& command, const std::string& group) {
    return group.empty() || std::string(command.mName).rfind(group + " ", 0) == 0;
}

constexpr char kStatusTitle[] = "\nExit status:\n";
constexpr char kExampleTitle[] = "\nExample:\n";

std::string summary(const Command& command) {
    const std::string page = command.mHelp;
    return page.substr(0, page.find('\n'));
}

/// Returns the lines of a section of a command's page, up to its end or to the next section.
std::string section(const Command& command, const char* title, const char* next) {
    const std::string page = command.mHelp;
    const std::size_t begin = page.find(title) + std::strlen(title);
    return page.substr(begin, page.find(next, begin) - begin);
}

std::string groupHelp(const std::string& group) {
    constexpr std::size_t width = 27;
    std::string list;
    bool drive = false;
    for (const Command* const command : commands()) {
        if (isInGroup(*command, group)) {
            list += "  " + padded(std::string(command->mName) + " " + command->mArguments, width) +
                    summary(*command) + "\n";
            drive = drive || command->has(eNeedsDrive);
        }
    }
    const char* const purpose =
        group.empty() ? "The system services of the media client, from the command line.\n"
        : drive       ? "The commands info, status and watch only read. The others bring the drive "
                        "up,\nwhich unmounts its file systems.\n"
                      : "None of these needs the recording drive, which is left alone.\n";
    return "Usage: kestrova " + (group.empty() ? "" : group + " ") +
           "COMMAND [OPTION...] [ARGUMENT...]\n\n" + purpose + "\nCommands:\n" + list;
}

constexpr char kGroupStatuses[] =
    "  1  failed; standard error says why\n"
    "  3  absent: nothing is wrong, but what was asked for does not exist\n"
    "  4, 5  refused, broken off (fetch)\n"
    "  6  cancelled by Ctrl-C (fetch, fetch-all, vars, syslog)\n"
    "  7  busy: another process has the lock; nothing was touched\n"
    "  'run' exits as the command that it ran.\n";

constexpr char kLockStatuses[] =
    "  6  cancelled by Ctrl-C\n"
    "  7  another process has the lock; nothing was touched\n";

/// `lines` start with the line of status 1.
std::string statuses(const std::string& lines) {
    const std::size_t second = lines.find('\n') + 1;
    return kStatusTitle + std::string("  0  done\n") + lines.substr(0, second) +
           "  2  misused; nothing was touched\n" + lines.substr(second);
}

}  // namespace

std::string helpBeforeOptions(const std::string& name) {
    const Command* const command = findCommand(name);
    if (command == nullptr) {
        return groupHelp(name);
    }
    const std::string page = command->mHelp;
    return "Usage: kestrova " + synopsis(*command) + "\n\n" +
           page.substr(0, page.find(kStatusTitle));
}

std::string helpAfterOptions(const std::string& name) {
    if (const Command* const command = findCommand(name)) {
        const bool locks = (command->mOptions & eOptionWait) != 0 && !command->has(eRunsCommands);
        return statuses(section(*command, kStatusTitle, kExampleTitle) +
                        (locks ? kLockStatuses : "")) +
               kExampleTitle + section(*command, kExampleTitle, "\n\n");
    }
    std::string example =
        "  kestrova drive info\n"
        "  kestrova shell -e 'drive start; drive status; drive stop'\n";
    for (auto each = commands().rbegin(); !name.empty() && each != commands().rend(); ++each) {
        example = isInGroup(**each, name) ? section(**each, kExampleTitle, "\n\n") : example;
    }
    return statuses(kGroupStatuses) + kExampleTitle + example + "\n'kestrova " +
           (name.empty() ? "" : name + " ") + "COMMAND --help' tells more about a command.\n";
}

std::string synopsis(const Command& command) {
    const std::string arguments = command.mArguments;
    return command.mName + std::string(command.mOptions != 0 ? " [OPTION...]" : "") +
           (arguments.empty() ? "" : " ") + arguments;
}

}  // namespace app
