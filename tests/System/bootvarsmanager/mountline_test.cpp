// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/mountline.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

std::string fieldsOf(const std::string& line) {
    const auto fields = std::make_unique<MountLine>();
    if (!fields->parse(line.c_str())) {
        return "none";
    }
    return std::string(fields->mDevice) + "|" + fields->mMountPoint + "|" + fields->mFsType + "|" +
           fields->mOptions;
}

struct Option {
    std::size_t mLength;
    bool mReadOnly;
    bool mReadWrite;
};

Option firstOption(const std::string& options) {
    const auto fields = std::make_unique<MountLine>();
    EXPECT_TRUE(fields->parse(("d m t " + options).c_str()));
    return {fields->firstOptionLength(), fields->firstOptionIs("ro"), fields->firstOptionIs("rw")};
}

}  // namespace

TEST(MountLine, SplitsAtAnyWhiteSpace) {
    EXPECT_EQ(fieldsOf("/dev/sdb1 /boot-sw ext3 rw,noexec 0 0\n"),
              "/dev/sdb1|/boot-sw|ext3|rw,noexec");
    EXPECT_EQ(fieldsOf("  a\t b   c\td"), "a|b|c|d");
    EXPECT_EQ(fieldsOf("a\nb\nc\nd\n"), "a|b|c|d");
    EXPECT_EQ(fieldsOf("/dev/a\\040b /m\\011 t o 0 0"), "/dev/a\\040b|/m\\011|t|o");
}

TEST(MountLine, NeedsFourFields) {
    for (const char* const line : {"", "\n", "   \n", "a", "a b\n", "a b c", "a b c \n"}) {
        EXPECT_EQ(fieldsOf(line), "none") << line;
    }
    EXPECT_EQ(fieldsOf("a b c d"), "a|b|c|d");
}

TEST(MountLine, AFieldThatFillsItsRoomFitsWhole) {
    const std::string full(MountLine::kFieldSize - 1, 'f');
    EXPECT_EQ(fieldsOf(full + " " + full + " " + full + " " + full + " 0 0\n"),
              full + "|" + full + "|" + full + "|" + full);
}

TEST(MountLine, ALongerFieldIsCutAndOverflowsNothing) {
    const std::string full(MountLine::kFieldSize - 1, 'f');
    // Its rest counts as the next field: such a line is no entry of a mount table.
    EXPECT_EQ(fieldsOf(full + "rest b c d"), full + "|rest|b|c");
    EXPECT_EQ(fieldsOf(std::string(16383, 'x')).size(), 4 * full.size() + 3);
}

TEST(MountLine, TheFirstOptionTellsTheState) {
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
        // Compared over its own length: one letter is the beginning of both, no letter of all.
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
