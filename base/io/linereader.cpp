// SPDX-License-Identifier: MIT
#include "base/io/linereader.h"

#include <fcntl.h>

#include <cerrno>

#include "base/cancelguard.h"
#include "base/io/descriptor.h"

namespace base {

void StreamCloser::operator()(std::FILE* stream) const {
    const CancelGuard guard;
    (void)std::fclose(stream);
}

Stream openForReading(const char* path) {
    Descriptor file = openDescriptor(path, O_RDONLY);
    Stream stream(file.valid() ? ::fdopen(file.get(), "r") : nullptr);
    if (stream != nullptr) {
        (void)file.release();
    }
    return stream;
}

int readCharacter(std::FILE* stream) {
    // Does not lock the stream: the lock would be held while a tool prints nothing, and
    // fflush(nullptr) in the application would wait for it.
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
