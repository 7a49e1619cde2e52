// SPDX-License-Identifier: MIT
//
// An application of the library whose calls a test on the host controls: the test writes a command
// to a serial port of the box and reads one line of answer.
#ifndef KESTROVA_TESTS_BOXPROGRAMS_DRIVEPROBE_H
#define KESTROVA_TESTS_BOXPROGRAMS_DRIVEPROBE_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "System/drivemanager/dvrdrive.h"

/// The words of a command or of an answer, separated by tabs on the line.
using Words = std::vector<std::string>;

/// A command receives its words, starting with its own name, and returns the answer. It throws if a
/// word is missing.
using Commands = std::map<std::string, std::function<Words(const Words&)>>;

inline Words answer(bool result) {
    return {result ? "true" : "false"};
}

/// Returns the drive of the system object. Throws if the system is not started or has no drive.
sysDVRDrive& recorder();

void addBootVarsCommands(Commands& commands);
void addDiskCommands(Commands& commands);
void addDvrCommands(Commands& commands);

#endif
