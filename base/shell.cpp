// SPDX-License-Identifier: MIT
#include "base/shell.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace base {

int runShell(const std::string& command) {
    std::string redirections;
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0) {
            redirections += std::to_string(descriptor) + "<>/dev/null ";
        }
    }
    return std::system((redirections + command).c_str());
}

}  // namespace base
