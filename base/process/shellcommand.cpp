// SPDX-License-Identifier: MIT
#include "base/process/shellcommand.h"

#include <unistd.h>

#include <cstdlib>

#include "base/process/childprocess.h"
#include "base/process/interruptsignals.h"

namespace base {

int runShell(const std::string& command) {
    std::string redirections;
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (!passedOn(descriptor)) {
            redirections += std::to_string(descriptor) + "<>/dev/null ";
        }
    }
    const InterruptsBorrowed borrowed;
    return std::system((redirections + command).c_str());
}

}  // namespace base
