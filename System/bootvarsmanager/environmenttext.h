// SPDX-License-Identifier: MIT
//
// Settings of boot variables: what they may hold, and their text of NAME=VALUE lines, which
// docs/boot-environment.md describes.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_ENVIRONMENTTEXT_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_ENVIRONMENTTEXT_H

#include <string>
#include <string_view>

#include "base/vector.h"

/// Returns why a setting is refused, or "" when it is not. A variable that gets a value has a name
/// that is not empty and holds neither '=' nor a line end, so that the text can name it. Any name
/// without a NUL can be removed.
std::string settingProblem(std::string_view name, std::string_view value);

/// Returns why one of the settings is refused, with its name, or "" when none is: two vectors of
/// different lengths, or a settingProblem().
std::string settingsProblem(const KestrovaVector<std::string>& names,
                            const KestrovaVector<std::string>& values);

/// Appends the settings of a text. Returns false, with the line and the reason in `problem` and
/// both vectors unchanged, when a line is malformed or a setting is refused. Only allocation
/// failure is thrown, with both vectors unchanged.
bool parseSettings(std::string_view text, KestrovaVector<std::string>& names,
                   KestrovaVector<std::string>& values, std::string& problem);

/// Appends a line for a variable to a text. Returns false, with the reason in `problem` and the
/// text unchanged, when the text cannot hold the variable.
bool appendSetting(std::string_view name, std::string_view value, std::string& text,
                   std::string& problem);

/// Makes a line for each variable. Returns false, with the reason in `problem` and the text
/// unchanged, when there are not as many values as names or the text cannot hold a variable.
bool formatSettings(const KestrovaVector<std::string>& names,
                    const KestrovaVector<std::string>& values, std::string& text,
                    std::string& problem);

#endif
