// SPDX-License-Identifier: MIT
//
// The progress values for the output of the ext tools.
#include "System/drivemanager/tools/toolprogress.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using drivemanager::checkProgress;
using drivemanager::FormatOutput;

namespace {

using Values = std::vector<std::int32_t>;

/// Returns every progress value of a format's output, in order.
Values valuesOf(const std::string& output) {
    FormatOutput reader;
    Values values;
    for (const char character : output) {
        std::int32_t progress = -1;
        if (reader.take(character, progress)) {
            values.push_back(progress);
        }
    }
    return values;
}

/// Returns the value of one piece in the inode-table stage, which starts at 20000.
Values tables(const std::string& piece) {
    return valuesOf("Writing inode tables:\b" + piece + "\b");
}

/// Returns the progress of a line of the checker, or -1.
std::int32_t checked(const char* line) {
    std::int32_t progress = -1;
    return checkProgress(line, progress) ? progress : -1;
}

}  // namespace

TEST(FormatOutput, FollowsTheStages) {
    EXPECT_EQ(valuesOf("mke2fs 1.47\nFilesystem label=x\nWriting inode tables:  0/320\b\b\b\b\b\b\b"
                       "160/320\b\b\b\b\b\b\bdone\nCreating journal: done\n"),
              (Values{20000, 45000, 70000}));
}

TEST(FormatOutput, TheBeginningMustMatchWhole) {
    EXPECT_EQ(valuesOf("Writing inode tables:\n"), Values{20000});
    EXPECT_EQ(valuesOf("Writing inode tables: 1/2\n"), Values{20000});
    EXPECT_EQ(valuesOf("Writing inode tables\n"), Values{});
    EXPECT_EQ(valuesOf(" Writing inode tables:\n"), Values{});
    EXPECT_EQ(valuesOf("writing inode tables:\n"), Values{});
}

TEST(FormatOutput, BackspaceLineFeedAndReturnEndAPiece) {
    for (const char end : {'\b', '\n', '\r'}) {
        const std::string ending(1, end);
        EXPECT_EQ(valuesOf("Writing inode tables:" + ending + "1/2" + ending + "done" + ending),
                  (Values{20000, 45000, 70000}))
            << static_cast<int>(end);
    }
    EXPECT_EQ(valuesOf("Writing inode tables:\t\n"), Values{20000});
    EXPECT_EQ(valuesOf("Writing inode tables:"), Values{});
}

TEST(FormatOutput, EmptyPiecesAreIgnored) {
    EXPECT_EQ(valuesOf("\b\n\rWriting inode tables:\b\b\n\r\b1/2\n\n"), (Values{20000, 45000}));
}

TEST(FormatOutput, CountersMapOntoTheirStage) {
    EXPECT_EQ(tables("0/320"), (Values{20000, 20000}));
    EXPECT_EQ(tables("160/320"), (Values{20000, 45000}));
    EXPECT_EQ(tables("320/320"), (Values{20000, 70000}));
    EXPECT_EQ(tables("1/3"), (Values{20000, 36666}));
    EXPECT_EQ(tables("  7/  10"), (Values{20000, 55000}));
    EXPECT_EQ(tables("7 / 10"), (Values{20000, 70000}));
    EXPECT_EQ(tables("1/2 and more"), (Values{20000, 45000}));
}

TEST(FormatOutput, ATotalOfZeroOrBelowTellsNothing) {
    EXPECT_EQ(tables("5/0"), Values{20000});
    EXPECT_EQ(tables("5/-1"), Values{20000});
    // The stage continues.
    EXPECT_EQ(tables("5/0\b1/2"), (Values{20000, 45000}));
}

TEST(FormatOutput, NegativeCountersGoBack) {
    EXPECT_EQ(tables("-1/2"), (Values{20000, -5000}));
    EXPECT_EQ(tables("-0/2"), (Values{20000, 20000}));
}

TEST(FormatOutput, ProductsWrapAround) {
    // 42950 * 50000 is 2147500000, that is -2147467296 in 32 bits.
    EXPECT_EQ(tables("42949/1000000"), (Values{20000, 22147}));
    EXPECT_EQ(tables("42950/1000000"), (Values{20000, 20000 - 2147}));
    EXPECT_EQ(tables("2147483647/1"), (Values{20000, 20000 - 50000}));
}

TEST(FormatOutput, NumbersOutOfRangeAreTheEndsOfTheRange) {
    EXPECT_EQ(tables("99999999999/1"), tables("2147483647/1"));
    EXPECT_EQ(tables("4294967296/7"), tables("2147483647/7"));
    EXPECT_EQ(tables("-99999999999/7"), tables("-2147483648/7"));
    EXPECT_EQ(tables("1/99999999999"), (Values{20000, 20000}));
    EXPECT_EQ(tables("18446744073709551617/1"), tables("2147483647/1"));
}

TEST(FormatOutput, WhatIsNoCounterEndsTheStage) {
    for (const char* const piece : {"done", "1", "1/", "/2", "1/x", "x", "1-2", "0x1/2", "1 2"}) {
        EXPECT_EQ(tables(piece), (Values{20000, 70000})) << piece;
    }
}

TEST(FormatOutput, AfterTheStageNothingMoves) {
    EXPECT_EQ(tables("done\b1/2\bWriting inode tables:\b1/2"), (Values{20000, 70000}));
}

TEST(FormatOutput, OfALongPieceTheBeginningCounts) {
    const std::string start = "Writing inode tables:";
    EXPECT_EQ(valuesOf(start + std::string(100000, 'x') + "\n1/2\n"), (Values{20000, 45000}));
    // A counter after 252 blanks is beyond the limit of 254 characters; one that ends there is not.
    EXPECT_EQ(tables(std::string(251, ' ') + "1/2"), (Values{20000, 45000}));
    EXPECT_EQ(tables(std::string(252, ' ') + "1/2"), (Values{20000, 70000}));
    // The rest of a piece is dropped, and is not a new piece.
    EXPECT_EQ(tables(std::string(251, ' ') + "1/24"), (Values{20000, 45000}));
}

TEST(FormatOutput, CharactersOfEveryKindAreTaken) {
    EXPECT_EQ(valuesOf(std::string("\0\xff\x7f\n", 4) + "Writing inode tables:\n"), Values{20000});
    // A NUL in a piece hides the rest of it.
    EXPECT_EQ(tables(std::string("1/2\0"
                                 "9",
                                 5)),
              (Values{20000, 45000}));
    EXPECT_EQ(tables(std::string("\0"
                                 "1/2",
                                 4)),
              (Values{20000, 70000}));
}

TEST(CheckProgress, EachPassIsAFifth) {
    EXPECT_EQ(checked("1 0 100 /dev/sda1\n"), 0);
    EXPECT_EQ(checked("1 50 100\n"), 10000);
    EXPECT_EQ(checked("3 50 100 /dev/sda1\n"), 50000);
    EXPECT_EQ(checked("5 100 100"), 100000);
    EXPECT_EQ(checked("  2\t1   3"), 26666);
}

TEST(CheckProgress, OtherLinesTellNothing) {
    for (const char* const line : {"", "\n", "1", "1 2", "1 2 x", "x 1 2 3", "/dev/sda1: clean",
                                   "1/2/3", "1,2,3", "1 2 /3"}) {
        EXPECT_EQ(checked(line), -1) << line;
    }
}

TEST(CheckProgress, AMaximumOfZeroIsSkipped) {
    EXPECT_EQ(checked("1 0 0"), -1);
    EXPECT_EQ(checked("3 7 -0"), -1);
}

TEST(CheckProgress, ProductsWrapAround) {
    // 42949 * 100000 is 4294900000; 42950 * 100000 is 32704 in 32 bits.
    EXPECT_EQ(checked("1 42949 100"), 8589800);
    EXPECT_EQ(checked("1 42950 100"), 65);
    EXPECT_EQ(checked("1 4294967295 1"), (4294967296 - 100000) / 5);
    // Pass 0 is below the start: 0 - 100000 wraps.
    EXPECT_EQ(checked("0 0 1"), static_cast<std::int32_t>(4294867296 / 5));
    EXPECT_EQ(checked("42951 0 1"),
              static_cast<std::int32_t>((42951 * 100000LL - 100000 - 4294967296) / 5));
}

TEST(CheckProgress, NumbersOutOfRangeAreTheEndOfTheRange) {
    EXPECT_EQ(checked("1 99999999999 1"), checked("1 4294967295 1"));
    EXPECT_EQ(checked("99999999999 0 1"), checked("4294967295 0 1"));
    EXPECT_EQ(checked("1 100 99999999999"), 0);
    EXPECT_EQ(checked("1 -1 1"), checked("1 4294967295 1"));
    EXPECT_EQ(checked("-1 0 1"), checked("4294967295 0 1"));
}
