// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_VARS_VARIABLESTORE_H
#define KESTROVA_APP_COMMANDS_VARS_VARIABLESTORE_H

#include <memory>
#include <string>

#include "app/cli/command.h"

namespace app {

/// The boot variables of a command: those of the box, or those in the file of --file. A failed
/// operation leaves its output parameters unchanged.
class VariableStore {
public:
    VariableStore() = default;
    virtual ~VariableStore() = default;
    VariableStore(const VariableStore&) = delete;
    VariableStore& operator=(const VariableStore&) = delete;

    /// Appends all variables in the order of the names. eAbsent without any environment.
    virtual Result list(Words& names, Words& values) = 0;
    /// Reads a variable. eAbsent if there is no such variable.
    virtual Result get(const std::string& name, std::string& value) = 0;
    /// Reads and decodes a binary variable. eAbsent if there is no such variable.
    virtual Result getBinary(const std::string& name, std::string& bytes) = 0;
    /// Sets all of the variables or none. An empty value removes its variable.
    virtual Result set(const Words& names, const Words& values) = 0;
    /// Sets a variable to bytes, as base64 text.
    virtual Result setBinary(const std::string& name, const std::string& bytes) = 0;
};

/// Returns the store that the options select.
std::unique_ptr<VariableStore> openStore(const Options& options);

/// Makes an environment without variables in the file of --file.
Result createEnvironment(const Options& options);

/// Returns the state that the library reads from the file of --file: "good", "backup", "damaged",
/// "missing" or "unreadable". Succeeds for "good" only; eAbsent for "missing".
Result environmentState(const Options& options, std::string& state);

}  // namespace app

#endif
