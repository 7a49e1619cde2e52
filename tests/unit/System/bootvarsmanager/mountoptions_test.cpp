// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/mountoptions.h"

#include <gtest/gtest.h>

namespace {

struct Option {
    std::size_t mLength;
    bool mReadOnly;
    bool mReadWrite;
};

Option firstOption(const char* options) {
    return {bootvars::firstOptionLength(options), bootvars::firstOptionIs(options, "ro"),
            bootvars::firstOptionIs(options, "rw")};
}

}  // namespace

TEST(MountOptions, TheFirstOneGivesTheState) {
    const struct {
        const char* mOptions;
        Option mExpected;
    } cases[] = {
        {"ro", {2, true, false}},
        {"rw", {2, false, true}},
        {"ro,noexec", {2, true, false}},
        {"rw,noexec", {2, false, true}},
        {"rox", {3, false, false}},
        {"rwx,ro", {3, false, false}},
        {"noexec,ro", {6, false, false}},
        {"relatime", {8, false, false}},
        {"RO", {2, false, false}},
        // Compared over its own length: one letter is a prefix of both, no letter of all.
        {"r", {1, true, true}},
        {"r,x", {1, true, true}},
        {",rw", {0, true, true}},
        {"o", {1, false, false}},
    };
    for (const auto& each : cases) {
        const Option found = firstOption(each.mOptions);
        EXPECT_EQ(found.mLength, each.mExpected.mLength) << each.mOptions;
        EXPECT_EQ(found.mReadOnly, each.mExpected.mReadOnly) << each.mOptions;
        EXPECT_EQ(found.mReadWrite, each.mExpected.mReadWrite) << each.mOptions;
    }
}
