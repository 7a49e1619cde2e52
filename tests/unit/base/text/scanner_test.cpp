// SPDX-License-Identifier: MIT
#include "base/text/scanner.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using base::Scanner;

struct SignedCase {
    const char* mText;
    bool mMatches;
    std::int32_t mValue;
};

// The same on every machine: a number beyond 32 bits becomes the nearest limit.
TEST(ScannerTest, SignedNumbers) {
    const SignedCase cases[] = {
        {"0", true, 0},
        {"7/9", true, 7},
        {"-7", true, -7},
        {"+7", true, 7},
        {" \t\n\v\f\r42", true, 42},
        {"007", true, 7},
        {"-0", true, 0},
        {"12x", true, 12},
        {"2147483647", true, INT32_MAX},
        {"2147483648", true, INT32_MAX},
        {"4294967295", true, INT32_MAX},
        {"4294967296", true, INT32_MAX},
        {"4294967297", true, INT32_MAX},
        {"9223372036854775807", true, INT32_MAX},
        {"9223372036854775808", true, INT32_MAX},
        {"18446744073709551616", true, INT32_MAX},
        {"99999999999999999999999999999999999999", true, INT32_MAX},
        {"-2147483647", true, -INT32_MAX},
        {"-2147483648", true, INT32_MIN},
        {"-2147483649", true, INT32_MIN},
        {"-4294967295", true, INT32_MIN},
        {"-4294967296", true, INT32_MIN},
        {"-99999999999999999999999999999999999999", true, INT32_MIN},
        {"00000000000000000000000000000000000000001", true, 1},
        {"", false, 0},
        {"   ", false, 0},
        {"-", false, 0},
        {"+", false, 0},
        {"- 1", false, 0},
        {"--1", false, 0},
        {"+-1", false, 0},
        {"x", false, 0},
        {".5", false, 0},
        {"0x10", true, 0},
    };
    for (const SignedCase& each : cases) {
        std::int32_t value = 0;
        EXPECT_EQ(each.mMatches, Scanner(each.mText).signedNumber(value)) << each.mText;
        EXPECT_EQ(each.mValue, value) << each.mText;
    }
}

struct UnsignedCase {
    const char* mText;
    bool mMatches;
    std::uint32_t mValue;
};

TEST(ScannerTest, UnsignedNumbers) {
    const UnsignedCase cases[] = {
        {"0", true, 0},
        {"4294967295", true, UINT32_MAX},
        {"4294967296", true, UINT32_MAX},
        {"4294967297", true, UINT32_MAX},
        {"18446744073709551615", true, UINT32_MAX},
        {"18446744073709551616", true, UINT32_MAX},
        {"99999999999999999999999999999999999999", true, UINT32_MAX},
        {"-1", true, UINT32_MAX},
        {"-2", true, UINT32_MAX - 1},
        {"-4294967295", true, 1},
        {"-4294967296", true, UINT32_MAX},
        {"-99999999999999999999999999999999999999", true, UINT32_MAX},
        {"+5", true, 5},
        {" 5", true, 5},
        {"5a", true, 5},
        {"a5", false, 0},
        {"", false, 0},
        {"-", false, 0},
    };
    for (const UnsignedCase& each : cases) {
        std::uint32_t value = 0;
        EXPECT_EQ(each.mMatches, Scanner(each.mText).unsignedNumber(value)) << each.mText;
        EXPECT_EQ(each.mValue, value) << each.mText;
    }
}

TEST(ScannerTest, HexadecimalNumbers) {
    const UnsignedCase cases[] = {
        {"83", true, 0x83},
        {"c", true, 0xc},
        {"fd", true, 0xfd},
        {"FD", true, 0xfd},
        {"aF", true, 0xaf},
        {"0", true, 0},
        {"0x1f", true, 0x1f},
        {"0X1F", true, 0x1f},
        {"ffffffff", true, UINT32_MAX},
        {"100000000", true, UINT32_MAX},
        {"fffffffffffffffffffffffff", true, UINT32_MAX},
        {"-1", true, UINT32_MAX},
        {"g", false, 0},
        {"", false, 0},
    };
    for (const UnsignedCase& each : cases) {
        std::uint32_t value = 0;
        EXPECT_EQ(each.mMatches, Scanner(each.mText).unsignedNumber(value, 16)) << each.mText;
        EXPECT_EQ(each.mValue, value) << each.mText;
    }
}

TEST(ScannerTest, WidthLimitsTheCharactersAfterWhiteSpace) {
    const UnsignedCase cases[] = {
        {"1234", true, 0x12}, {"  1234", true, 0x12}, {"f", true, 0xf},  {"-12", true, UINT32_MAX},
        {"+12", true, 1},     {"0x12", true, 0},      {"0712", true, 7}, {"-", false, 0},
        {"--", false, 0},     {"", false, 0},
    };
    for (const UnsignedCase& each : cases) {
        std::uint32_t value = 0;
        EXPECT_EQ(each.mMatches, Scanner(each.mText).unsignedNumber(value, 16, 2)) << each.mText;
        EXPECT_EQ(each.mValue, value) << each.mText;
    }
    Scanner scanner("1234");
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    EXPECT_TRUE(scanner.unsignedNumber(first, 10, 3));
    EXPECT_TRUE(scanner.unsignedNumber(second));
    EXPECT_EQ(123U, first);
    EXPECT_EQ(4U, second);
}

TEST(ScannerTest, LiteralsMatchTheirCharactersAndAnyWhiteSpace) {
    EXPECT_TRUE(Scanner("a:  b").literal("a: b"));
    EXPECT_TRUE(Scanner("a:b").literal("a: b"));
    EXPECT_TRUE(Scanner("a:\t\n\v\f\r b").literal("a: b"));
    EXPECT_TRUE(Scanner("   a").literal("\ta"));
    EXPECT_TRUE(Scanner("").literal(" "));
    EXPECT_TRUE(Scanner("rest").literal(""));
    EXPECT_FALSE(Scanner(" a").literal("a"));
    EXPECT_FALSE(Scanner("ab").literal("abc"));
    EXPECT_FALSE(Scanner("A").literal("a"));
    EXPECT_FALSE(Scanner("").literal("a"));
}

TEST(ScannerTest, WordsAreCutAtTheBuffer) {
    char buffer[4] = "";
    EXPECT_TRUE(Scanner("  ab cd").word(buffer, sizeof(buffer)));
    EXPECT_STREQ("ab", buffer);
    EXPECT_TRUE(Scanner("abc").word(buffer, sizeof(buffer)));
    EXPECT_STREQ("abc", buffer);
    Scanner scanner("abcdef g");
    EXPECT_TRUE(scanner.word(buffer, sizeof(buffer)));
    EXPECT_STREQ("abc", buffer);
    EXPECT_TRUE(scanner.word(buffer, sizeof(buffer)));
    EXPECT_STREQ("def", buffer);
    EXPECT_TRUE(scanner.word(buffer, sizeof(buffer)));
    EXPECT_STREQ("g", buffer);
    EXPECT_FALSE(scanner.word(buffer, sizeof(buffer)));
}

TEST(ScannerTest, MissingWordLeavesTheBufferAlone) {
    char buffer[4] = "old";
    EXPECT_FALSE(Scanner("").word(buffer, sizeof(buffer)));
    EXPECT_FALSE(Scanner(" \t\n").word(buffer, sizeof(buffer)));
    EXPECT_STREQ("old", buffer);
}

TEST(ScannerTest, BytesAboveAsciiAreOrdinaryCharacters) {
    char buffer[8] = "";
    EXPECT_TRUE(Scanner("\xa0\xff z").word(buffer, sizeof(buffer)));
    EXPECT_STREQ("\xa0\xff", buffer);
    std::int32_t value = 0;
    EXPECT_FALSE(Scanner("\xb2").signedNumber(value));
}

TEST(ScannerTest, NothingMatchesAfterAMismatch) {
    Scanner scanner("a 1");
    std::int32_t number = 5;
    std::uint32_t unsignedNumber = 6;
    char buffer[4] = "old";
    EXPECT_FALSE(scanner.signedNumber(number));
    EXPECT_FALSE(scanner.literal("a"));
    EXPECT_FALSE(scanner.literal(""));
    EXPECT_FALSE(scanner.word(buffer, sizeof(buffer)));
    EXPECT_FALSE(scanner.signedNumber(number));
    EXPECT_FALSE(scanner.unsignedNumber(unsignedNumber));
    EXPECT_EQ(5, number);
    EXPECT_EQ(6U, unsignedNumber);
    EXPECT_STREQ("old", buffer);
}

}  // namespace
