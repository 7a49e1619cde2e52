// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/mountline.h"

#include <algorithm>
#include <cstring>

#include "base/scanner.h"

bool MountLine::parse(const char* line) {
    base::Scanner fields(line);
    return fields.word(mDevice, sizeof(mDevice)) && fields.word(mMountPoint, sizeof(mMountPoint)) &&
           fields.word(mFsType, sizeof(mFsType)) && fields.word(mOptions, sizeof(mOptions));
}

std::size_t MountLine::firstOptionLength() const {
    return std::strcspn(mOptions, ",");
}

bool MountLine::firstOptionIs(const char (&name)[3]) const {
    // The name's terminator takes part for longer options, so that "rw" is not found in "rwx". A
    // shorter option is compared over its own length only, and has always been.
    return std::memcmp(mOptions, name, std::min(firstOptionLength(), sizeof(name))) == 0;
}
