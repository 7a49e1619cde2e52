// SPDX-License-Identifier: MIT
//
// Any bytes as a mount table, line by line, held against the C library's scanf.
#include "System/bootvarsmanager/mountline.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/linereader.h"

namespace {

constexpr std::size_t kLineSize = 16384;

void require(bool held) {
    if (!held) {
        std::abort();
    }
}

void compare(const char* line) {
    static MountLine fields;
    static MountLine expected;
    const int count = std::sscanf(line, "%4095s %4095s %4095s %4095s ", expected.mDevice,
                                  expected.mMountPoint, expected.mFsType, expected.mOptions);
    require(fields.parse(line) == (count == 4));
    if (count != 4) {
        return;
    }
    require(std::strcmp(fields.mDevice, expected.mDevice) == 0);
    require(std::strcmp(fields.mMountPoint, expected.mMountPoint) == 0);
    require(std::strcmp(fields.mFsType, expected.mFsType) == 0);
    require(std::strcmp(fields.mOptions, expected.mOptions) == 0);

    const char* const comma = std::strchr(fields.mOptions, ',');
    const std::size_t length = comma != nullptr ? static_cast<std::size_t>(comma - fields.mOptions)
                                                : std::strlen(fields.mOptions);
    require(fields.firstOptionLength() == length);
    require(fields.firstOptionIs("ro") ==
            (std::strncmp(fields.mOptions, "ro", length < 3 ? length : 3) == 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length) {
    const base::Stream table(::fmemopen(nullptr, length + 1, "w+"));
    require(table != nullptr);
    require(std::fwrite(data, 1, length, table.get()) == length);
    std::rewind(table.get());
    const auto line = std::make_unique<char[]>(kLineSize);
    while (base::readLine(table.get(), line.get(), kLineSize)) {
        compare(line.get());
    }
    return 0;
}
