// SPDX-License-Identifier: MIT
#include "base/log/console.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "base/errnokeeper.h"

namespace base {

void writeConsole(const char* text, std::size_t length) {
    const ErrnoKeeper keeper;
    while (length > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, text, length);
        if (written > 0) {
            text += written;
            length -= static_cast<std::size_t>(written);
        } else if (written < 0 && errno == EAGAIN) {
            pollfd output = {STDOUT_FILENO, POLLOUT, 0};
            (void)::poll(&output, 1, -1);
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

}  // namespace base
