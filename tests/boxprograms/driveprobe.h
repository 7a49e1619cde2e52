// SPDX-License-Identifier: MIT
//
// An application of the library whose every call is made from outside: a test on the host writes a
// command to a serial port of the box and reads one line of answer.
#ifndef KESTROVA_TESTS_BOXPROGRAMS_DRIVEPROBE_H
#define KESTROVA_TESTS_BOXPROGRAMS_DRIVEPROBE_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "System/drivemanager/dvrdrive.h"

/// The words of a command or of an answer; on the line they are separated by tabs.
using Words = std::vector<std::string>;

/// A command gets its words, its own name first, and gives the answer. A missing word throws.
using Commands = std::map<std::string, std::function<Words(const Words&)>>;

inline Words answer(bool result) {
    return {result ? "true" : "false"};
}

/// The drive of the system object; throws when the system is not up or has none.
sysDVRDrive& recorder();

void addBootVarsCommands(Commands& commands);
void addDiskCommands(Commands& commands);
void addDvrCommands(Commands& commands);

#endif
