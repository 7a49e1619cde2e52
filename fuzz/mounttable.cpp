// SPDX-License-Identifier: MIT
//
// Parses arbitrary bytes as a mount table, line by line, and compares the result with scanf().
#include "base/io/mounttable.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "System/bootvarsmanager/mountoptions.h"
#include "base/io/linereader.h"

namespace {

constexpr std::size_t kLineSize = 16384;

void require(bool held) {
    if (!held) {
        std::abort();
    }
}

void compare(const char* line) {
    static char copy[kLineSize];
    static char expected[4][kLineSize];
    std::strcpy(copy, line);
    const int count = std::sscanf(line, "%16383s %16383s %16383s %16383s ", expected[0],
                                  expected[1], expected[2], expected[3]);
    const base::MountEntry entry = base::splitMountLine(copy);
    require(entry.mFields == static_cast<unsigned>(count < 0 ? 0 : count));
    const char* const fields[] = {entry.mDevice, entry.mDirectory, entry.mType, entry.mOptions};
    for (unsigned i = 0; i < 4; ++i) {
        require(std::strcmp(fields[i], i < entry.mFields ? expected[i] : "") == 0);
    }
    require(base::unescapedMountName(entry.mDevice).size() <= std::strlen(entry.mDevice));

    const char* const comma = std::strchr(entry.mOptions, ',');
    const std::size_t length = comma != nullptr ? static_cast<std::size_t>(comma - entry.mOptions)
                                                : std::strlen(entry.mOptions);
    require(bootvars::firstOptionLength(entry.mOptions) == length);
    require(bootvars::firstOptionIs(entry.mOptions, "ro") ==
            (std::strncmp(entry.mOptions, "ro", length < 3 ? length : 3) == 0));
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
