// SPDX-License-Identifier: MIT
#include "base/standardstreams.h"

#include <fcntl.h>
#include <unistd.h>

namespace base {

void fillStandardStreams() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0) {
            (void)::open("/dev/null", O_RDWR);  // takes the lowest free number, this one
        }
    }
}

}  // namespace base
