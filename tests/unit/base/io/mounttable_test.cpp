// SPDX-License-Identifier: MIT
#include "base/io/mounttable.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/support/failingcalls.h"
#include "tests/support/sandbox.h"

using tests::inSandbox;
using tests::Sandbox;

namespace {

std::string textOf(const base::MountEntry& entry) {
    return std::to_string(entry.mFields) + " " + entry.mDevice + "|" + entry.mDirectory + "|" +
           entry.mType + "|" + entry.mOptions;
}

std::string split(std::string line) {
    return textOf(base::splitMountLine(line.data()));
}

/// Returns every entry of a table, read into a buffer of this size.
std::vector<std::string> entriesOf(Sandbox& box, const std::string& text, std::size_t size) {
    box.replaceMounts(text);
    base::MountTable table;
    EXPECT_TRUE(table.opened());
    std::vector<std::string> entries;
    std::string buffer(size, 'x');
    base::MountEntry entry;
    while (table.next(buffer.data(), size, entry)) {
        entries.push_back(textOf(entry));
    }
    return entries;
}

}  // namespace

TEST(MountTable, SplitsAtAnyWhiteSpace) {
    EXPECT_EQ(split("/dev/sdb1 /boot-sw ext3 rw,noexec 0 0\n"),
              "4 /dev/sdb1|/boot-sw|ext3|rw,noexec");
    EXPECT_EQ(split("  a\t b   c\td"), "4 a|b|c|d");
    EXPECT_EQ(split("a\nb\vc\fd\re"), "4 a|b|c|d");
}

TEST(MountTable, CountsTheFieldsOfAShortLine) {
    EXPECT_EQ(split(""), "0 |||");
    EXPECT_EQ(split(" \n"), "0 |||");
    EXPECT_EQ(split("a"), "1 a|||");
    EXPECT_EQ(split("a b\n"), "2 a|b||");
    EXPECT_EQ(split("a b c \n"), "3 a|b|c|");
}

TEST(MountTable, AFieldOfAnyLengthStaysWhole) {
    const std::string field(10000, 'f');
    EXPECT_EQ(split(field + " " + field + " t o 0 0"), "4 " + field + "|" + field + "|t|o");
}

TEST(MountTable, RemovesTheKernelsEscapes) {
    EXPECT_EQ(base::unescapedMountName("/a\\040b\\011c\\012d\\134e"), "/a b\tc\nd\\e");
    EXPECT_EQ(base::unescapedMountName("\\377\\4"), "\377\\4");
    EXPECT_EQ(base::unescapedMountName("\\08\\0"), "\\08\\0");
    EXPECT_EQ(base::unescapedMountName(""), "");
}

TEST(MountTable, ReadsLineByLine) {
    inSandbox([](Sandbox& box) {
        const std::vector<std::string> expected = {"4 a|b|c|d", "0 |||", "2 e|f||"};
        EXPECT_EQ(entriesOf(box, "a b c d 0 0\n\ne f", 100), expected);
    });
}

TEST(MountTable, ALongLineComesInPieces) {
    inSandbox([](Sandbox& box) {
        // The buffer of 8 holds 7 characters and the terminator.
        const std::vector<std::string> expected = {"2 a|bcdef||", "2 gh|i||", "2 j|k||"};
        EXPECT_EQ(entriesOf(box, "a bcdefgh i\nj k\n", 8), expected);
    });
}

TEST(MountTable, TheTableOfThisMachineCanBeRead) {
    base::MountTable table;
    ASSERT_TRUE(table.opened());
    bool rootSeen = false;
    char line[4096];
    base::MountEntry entry;
    while (table.next(line, sizeof(line), entry)) {
        rootSeen = rootSeen || std::string(entry.mDirectory) == "/";
    }
    EXPECT_TRUE(rootSeen);
}

TEST(MountTable, SaysWhyItIsNotOpened) {
    const failingcalls::Scope scope;
    failingcalls::fail(failingcalls::Call::eOpen, EMFILE);
    const base::MountTable table;
    EXPECT_FALSE(table.opened());
    EXPECT_EQ(errno, EMFILE);
}
