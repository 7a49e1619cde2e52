// SPDX-License-Identifier: MIT
#include "base/io/filelock.h"

#include <sys/file.h>

#include <cerrno>

namespace base {

bool tryFlock(const Descriptor& file, bool shared) {
    int result = -1;
    do {
        result = ::flock(file.get(), (shared ? LOCK_SH : LOCK_EX) | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

}  // namespace base
