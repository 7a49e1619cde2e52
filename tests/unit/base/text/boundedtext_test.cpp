// SPDX-License-Identifier: MIT
#include "base/text/boundedtext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

int format(char* buffer, std::size_t size, const char* text, ...)
    __attribute__((format(printf, 3, 4)));

int format(char* buffer, std::size_t size, const char* text, ...) {
    va_list arguments;
    va_start(arguments, text);
    const int result = kestrova_vsnprintf(buffer, size, text, arguments);
    va_end(arguments);
    return result;
}

TEST(VsnprintfTest, FormatsCutsAndTellsTheWholeLength) {
    char buffer[6] = "-----";
    EXPECT_EQ(5, format(buffer, sizeof(buffer), "%d-%s", 12, "ab"));
    EXPECT_STREQ("12-ab", buffer);
    EXPECT_EQ(9, format(buffer, sizeof(buffer), "%s", "123456789"));
    EXPECT_STREQ("12345", buffer);
    EXPECT_EQ(3, format(buffer, 1, "abc"));
    EXPECT_STREQ("", buffer);
}

TEST(VsnprintfTest, SizeZeroWritesNothing) {
    char buffer[2] = "x";
    EXPECT_EQ(3, format(buffer, 0, "abc"));
    EXPECT_STREQ("x", buffer);
    EXPECT_EQ(3, format(nullptr, 0, "abc"));
}

/// A buffer that shows which bytes were written.
struct Marked {
    Marked() { std::memset(mBytes, '#', sizeof(mBytes)); }
    std::string text() const { return {mBytes, sizeof(mBytes)}; }
    char mBytes[8];
};

std::string copied(const char* text, int size) {
    Marked buffer;
    EXPECT_EQ(buffer.mBytes, kestrova_strncpy(buffer.mBytes, text, size));
    return buffer.text();
}

TEST(StrncpyTest, CopiesCutsTerminatesAndDoesNotFillUp) {
    using namespace std::string_literals;
    EXPECT_EQ("abc\0####"s, copied("abc", 8));
    EXPECT_EQ("abc\0####"s, copied("abc", 4));
    EXPECT_EQ("ab\0#####"s, copied("abc", 3));
    EXPECT_EQ("\0#######"s, copied("abc", 1));
    EXPECT_EQ("\0#######"s, copied("", 8));
    EXPECT_EQ("1234567\0"s, copied("123456789", 8));
}

TEST(StrncpyTest, SizeZeroOrBelowLeavesTheBufferAlone) {
    EXPECT_EQ("########", copied("abc", 0));
    EXPECT_EQ("########", copied("abc", -1));
    EXPECT_EQ("########", copied("abc", -2147483647 - 1));
}

TEST(StrncpyTest, DoesNotReadBeyondWhatItCopies) {
    const char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EQ(std::string("abc\0####", 8), copied(unterminated, 4));
}

}  // namespace
