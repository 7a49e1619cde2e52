// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/mountoptions.h"

#include <algorithm>
#include <cstring>

namespace bootvars {

std::size_t firstOptionLength(const char* options) {
    return std::strcspn(options, ",");
}

bool firstOptionIs(const char* options, const char (&name)[3]) {
    // The terminator of the name is compared for longer options, so that "rw" does not match "rwx".
    // A shorter option is compared over its own length only: released versions accept it.
    return std::memcmp(options, name, std::min(firstOptionLength(options), sizeof(name))) == 0;
}

}  // namespace bootvars
