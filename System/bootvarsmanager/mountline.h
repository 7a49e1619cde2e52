// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_MOUNTLINE_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_MOUNTLINE_H

#include <cstddef>

/// The fields of a line of /proc/mounts that matter here. What is longer than its room is cut.
struct MountLine {
    static constexpr std::size_t kFieldSize = 4096;

    char mDevice[kFieldSize];
    char mMountPoint[kFieldSize];
    char mFsType[kFieldSize];
    char mOptions[kFieldSize];

    /// Splits a line; false when it has fewer than four fields.
    bool parse(const char* line);

    /// Length of the first option.
    std::size_t firstOptionLength() const;

    /// Compares the first option with a two-letter name over its own length, at most three bytes.
    bool firstOptionIs(const char (&name)[3]) const;
};

#endif
