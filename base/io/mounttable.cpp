// SPDX-License-Identifier: MIT
#include "base/io/mounttable.h"

#include <cstring>

namespace base {

namespace {

constexpr char kSpace[] = " \t\n\v\f\r";

bool isOctal(char character) {
    return character >= '0' && character <= '7';
}

}  // namespace

MountEntry splitMountLine(char* line) {
    MountEntry entry;
    for (const char** const field :
         {&entry.mDevice, &entry.mDirectory, &entry.mType, &entry.mOptions}) {
        line += std::strspn(line, kSpace);
        if (*line == '\0') {
            break;
        }
        *field = line;
        ++entry.mFields;
        line += std::strcspn(line, kSpace);
        if (*line != '\0') {
            *line++ = '\0';
        }
    }
    return entry;
}

std::string unescapedMountName(const char* name) {
    std::string text;
    while (*name != '\0') {
        if (name[0] == '\\' && isOctal(name[1]) && isOctal(name[2]) && isOctal(name[3])) {
            text += static_cast<char>((name[1] - '0') * 64 + (name[2] - '0') * 8 + (name[3] - '0'));
            name += 4;
        } else {
            text += *name++;
        }
    }
    return text;
}

bool MountTable::next(char* buffer, std::size_t size, MountEntry& entry) {
    if (!readLine(mStream.get(), buffer, size)) {
        return false;
    }
    entry = splitMountLine(buffer);
    return true;
}

bool MountTable::failed() const {
    return ::ferror_unlocked(mStream.get()) != 0;
}

}  // namespace base
