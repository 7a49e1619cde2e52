// SPDX-License-Identifier: MIT
//
// The partition tool's lines, and its input.
#include "System/drivemanager/tools/partitiontable.h"

#include <gtest/gtest.h>

using drivemanager::parsePartitionLine;
using drivemanager::PartitionEntry;
using drivemanager::partitionScript;

namespace {

struct Line {
    std::string mText;
    std::string mName;
    unsigned long long mCapacity;
    int mType;
};

void expectEntry(const Line& line) {
    SCOPED_TRACE(line.mText);
    PartitionEntry entry;
    ASSERT_TRUE(parsePartitionLine(line.mText.c_str(), entry));
    EXPECT_EQ(entry.mName, line.mName);
    EXPECT_EQ(entry.mCapacity, line.mCapacity);
    EXPECT_EQ(entry.mType, line.mType);
}

bool isEntry(const std::string& line) {
    PartitionEntry entry;
    return parsePartitionLine(line.c_str(), entry);
}

std::string withSize(const std::string& size) {
    return "/dev/sda1 : start= 63, size=" + size + ", Id=83\n";
}

std::string withType(const std::string& type) {
    return "/dev/sda1 : start= 63, size= 2, Id=" + type + "\n";
}

PartitionEntry entryOf(const std::string& line) {
    PartitionEntry entry;
    EXPECT_TRUE(parsePartitionLine(line.c_str(), entry)) << line;
    return entry;
}

std::string script(int first, int second, int third, int fourth) {
    const int sizes[] = {first, second, third, fourth};
    return partitionScript(sizes);
}

}  // namespace

TEST(PartitionLine, TakesWhatTheToolPrints) {
    const Line lines[] = {
        {"/dev/sda1 : start=       63, size=   16002, Id=83\n", "/dev/sda1", 16002 * 512, 0x83},
        {"/dev/sda1 : start=       63, size=   16002, Id=83, bootable\n", "/dev/sda1", 16002 * 512,
         0x83},
        {"   /dev/sda2 : start=    16065, size=156280320, Id= 7\n", "/dev/sda2", 80015523840ULL, 7},
        {"/dev/mmcblk0p3 : start=1,size=2, Id=8e", "/dev/mmcblk0p3", 1024, 0x8e},
        {"/dev/sda1\t\t: start= 0, size= 1, Id=fD", "/dev/sda1", 512, 0xfd},
        {"/dev/sda1 \t : start=\t0, size=\t1, Id=\t5", "/dev/sda1", 512, 5},
        {"/dev/sda1: : start= 0, size= 1, Id=83", "/dev/sda1:", 512, 0x83},
    };
    for (const Line& line : lines) {
        expectEntry(line);
    }
}

TEST(PartitionLine, OtherLinesAreIgnored) {
    for (const char* const line :
         {"", "\n", "# partition table of /dev/sda\n", "unit: sectors\n", "label: dos\n",
          "/dev/sda1\n", "/dev/sda1 : start= 63\n", "/dev/sda1 : start= 63, size= 10\n",
          "/dev/sda1 : start= 63, size= 10, Id=\n", "/dev/sda1 : start= 63, size= 10, type=83\n",
          "/dev/sda1 : start= , size= 10, Id=83\n", "/dev/sda1 : start= x, size= 10, Id=83\n",
          "/dev/sda1 : size= 10, Id=83\n", "/dev/sda1: start= 63, size= 10, Id=83\n",
          "/dev/sda1 : start= 63 , size= 10, Id=83\n", "/dev/sda1 : start= 63, size= 10 , Id=83\n",
          "/dev/sda1 : Start= 63, size= 10, Id=83\n",
          "/dev/sda1 : start= 63, size= 1.5, Id=83\n"}) {
        EXPECT_FALSE(isEntry(line)) << line;
    }
}

TEST(PartitionLine, AnEmptySlotIsNoEntry) {
    EXPECT_FALSE(isEntry("/dev/sda3 : start=        0, size=        0, Id= 0\n"));
    EXPECT_FALSE(isEntry(withSize("0")));
    EXPECT_FALSE(isEntry(withSize("-0")));
    EXPECT_FALSE(isEntry(withSize("000")));
}

TEST(PartitionLine, TheByteCountHas64Bits) {
    EXPECT_EQ(entryOf(withSize("8388608")).mCapacity, 4294967296ULL);
    EXPECT_EQ(entryOf(withSize("4294967295")).mCapacity, 4294967295ULL * 512);
}

TEST(PartitionLine, ASizeOutOfRangeIsTheEndOfTheRange) {
    EXPECT_EQ(entryOf(withSize("4294967296")).mCapacity, 4294967295ULL * 512);
    EXPECT_EQ(entryOf(withSize("99999999999999999999999")).mCapacity, 4294967295ULL * 512);
    EXPECT_EQ(entryOf(withSize("-1")).mCapacity, 4294967295ULL * 512);
    EXPECT_EQ(entryOf(withSize("-4294967295")).mCapacity, 512U);
    EXPECT_EQ(entryOf(withSize("+7")).mCapacity, 7U * 512);
    EXPECT_TRUE(isEntry("/dev/sda1 : start= 99999999999999999999, size= 1, Id=83"));
}

TEST(PartitionLine, TheTypeHasTwoDigits) {
    EXPECT_EQ(entryOf(withType("0")).mType, 0);
    EXPECT_EQ(entryOf(withType("ff")).mType, 0xff);
    EXPECT_EQ(entryOf(withType("183")).mType, 0x18);
    EXPECT_EQ(entryOf(withType("8z")).mType, 8);
    EXPECT_EQ(entryOf(withType("-1")).mType, -1);
    EXPECT_FALSE(isEntry(withType("z8")));
    EXPECT_FALSE(isEntry(withType("-")));
    EXPECT_FALSE(isEntry(withType("- 1")));
}

TEST(PartitionLine, ALongNameIsIgnoredAndOverflowsNothing) {
    const std::string rest = " : start= 1, size= 2, Id=83\n";
    expectEntry(
        {"/dev/" + std::string(122, 'n') + rest, "/dev/" + std::string(122, 'n'), 1024, 0x83});
    EXPECT_FALSE(isEntry("/dev/" + std::string(123, 'n') + rest));
    EXPECT_FALSE(isEntry(std::string(100000, 'n') + rest));
}

TEST(PartitionScript, HasALineForEachSize) {
    EXPECT_EQ(script(-1, 0, 0, 0), ";\n");
    EXPECT_EQ(script(100, -1, 7, 7), ",100\n;\n");
    EXPECT_EQ(script(100, 200, 0, 7), ",100\n,200\n");
    EXPECT_EQ(script(0, 7, 7, 7), "");
    EXPECT_EQ(script(100, 200, 300, 400), ",100\n,200\n,300\n,400\n");
    EXPECT_EQ(script(100, 200, 300, -1), ",100\n,200\n,300\n;\n");
    EXPECT_EQ(script(-1, 100, 100, 100), ";\n");
    EXPECT_EQ(script(-2, 100, 100, 100), "");
    EXPECT_EQ(script(1, -2, -1, 100), ",1\n");
    EXPECT_EQ(script(2147483647, -2147483647 - 1, 0, 0), ",2147483647\n");
}
