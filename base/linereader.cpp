// SPDX-License-Identifier: MIT
#include "base/linereader.h"

#include <cerrno>

namespace base {

int readCharacter(std::FILE* stream) {
    // One thread owns the stream, so the lock that getc takes for each character is left out.
    int character = ::getc_unlocked(stream);
    while (character == EOF && ::ferror_unlocked(stream) != 0 && errno == EINTR) {
        ::clearerr_unlocked(stream);
        character = ::getc_unlocked(stream);
    }
    return character;
}

bool readLine(std::FILE* stream, char* buffer, std::size_t size) {
    std::size_t length = 0;
    while (length + 1 < size) {
        const int character = readCharacter(stream);
        if (character == EOF) {
            break;
        }
        buffer[length++] = static_cast<char>(character);
        if (character == '\n') {
            break;
        }
    }
    buffer[length] = '\0';
    return length > 0;
}

}  // namespace base
