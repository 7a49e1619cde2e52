// SPDX-License-Identifier: MIT
#include "base/stream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

namespace {

/// Records every call as a text: "p:" put, "w:" write, "f" flush.
class RecordingOutput : public PrintfOutput {
public:
    void put(char character) override { mCalls.push_back(std::string("p:") + character); }
    void write(const char* text, unsigned int length) override {
        mCalls.push_back("w:" + std::string(text, length));
    }
    void flush() override { mCalls.emplace_back("f"); }

    /// Returns the characters received.
    std::string text() const {
        std::string text;
        for (const std::string& call : mCalls) {
            text += call == "f" ? "" : call.substr(2);
        }
        return text;
    }

    std::vector<std::string> mCalls;
};

using Calls = std::vector<std::string>;
using Flags = PrintfOutput::ConvertionFlags;

/// Returns the output for one piece in a stream with these settings.
template <class Piece>
std::string written(Piece piece, int base = 10, unsigned formatFlags = 0, Flags flags = {}) {
    RecordingOutput sink;
    KestrovaOstream stream(&sink, formatFlags);
    stream.setBase(base);
    stream.setConversion(flags);
    stream << piece;
    return sink.text();
}

TEST(StreamTest, TextIsOneWriteWithItsLength) {
    RecordingOutput sink;
    KestrovaOstream stream(&sink);
    stream << "abc" << std::string("d\0e", 3);
    EXPECT_EQ((Calls{"w:abc", "w:" + std::string("d\0e", 3)}), sink.mCalls);
}

TEST(StreamTest, EmptyTextWritesNothing) {
    RecordingOutput sink;
    KestrovaOstream stream(&sink);
    stream << "" << std::string();
    EXPECT_EQ(Calls{}, sink.mCalls);
}

TEST(StreamTest, NullTextIsSpeltOut) {
    EXPECT_EQ("(null)", written(static_cast<const char*>(nullptr)));
}

TEST(StreamTest, FlushFlagFlushesAfterEveryPieceOfEveryKind) {
    RecordingOutput sink;
    KestrovaOstream stream(&sink, KestrovaOstream::eFlagFlushEach);
    EXPECT_EQ(16, KestrovaOstream::eFlagFlushEach);
    const int here = 0;
    stream << "a" << std::string("b") << true << -1 << 2U << 3L << 4UL << 5LL << 6ULL
           << static_cast<const void*>(nullptr) << static_cast<const void*>(&here) << "";
    int flushes = 0;
    for (std::size_t i = 0; i < sink.mCalls.size(); ++i) {
        flushes += sink.mCalls[i] == "f" ? 1 : 0;
    }
    EXPECT_EQ(12, flushes);
    EXPECT_EQ((Calls{"w:a", "f", "w:b", "f", "w:true", "f", "w:-1", "f"}),
              Calls(sink.mCalls.begin(), sink.mCalls.begin() + 8));
}

TEST(StreamTest, WithoutTheFlushFlagNothingIsFlushed) {
    RecordingOutput sink;
    KestrovaOstream stream(&sink, ~16U);
    stream << "a" << 1 << std::string("b");
    EXPECT_EQ((Calls{"w:a", "w:1", "w:b"}), sink.mCalls);
}

TEST(StreamTest, FlagEightGivesCapitals) {
    EXPECT_EQ(8, KestrovaOstream::eFlagUpperCase);
    EXPECT_EQ("beef", written(0xbeefU, 16));
    EXPECT_EQ("BEEF", written(0xbeefU, 16, 8));
    EXPECT_EQ("beef", written(0xbeefU, 16, ~8U & ~16U));
    Flags alternate;
    alternate.mAlternateForm = true;
    EXPECT_EQ("0XBEEF", written(0xbeefU, 16, 8, alternate));
}

TEST(StreamTest, OtherFormatFlagsChangeNothing) {
    for (unsigned flag = 1; flag != 0; flag <<= 1U) {
        if (flag != 8 && flag != 16) {
            EXPECT_EQ("-1beef", written(-0x1beef, 16, flag).substr(0, 6)) << flag;
            EXPECT_EQ("text", written("text", 10, flag)) << flag;
        }
    }
}

TEST(StreamTest, BaseCountsForIntegers) {
    EXPECT_EQ("10110", written(22, 2));
    EXPECT_EQ("211", written(22U, 3));
    EXPECT_EQ("26", written(22, 8));
    EXPECT_EQ("22", written(22, 10));
    EXPECT_EQ("16", written(22, 16));
    EXPECT_EQ("-16", written(-22, 16));
    EXPECT_EQ("text", written("text", 2));
}

TEST(StreamTest, ImpossibleBaseIsTen) {
    for (const int base : {-10, 0, 1, 17, 36, std::numeric_limits<int>::max()}) {
        EXPECT_EQ("22", written(22, base)) << base;
    }
}

TEST(StreamTest, ExtremesOfEveryIntegerType) {
    EXPECT_EQ("2147483647", written(std::numeric_limits<int>::max()));
    EXPECT_EQ("-2147483648", written(std::numeric_limits<int>::min()));
    EXPECT_EQ("4294967295", written(std::numeric_limits<unsigned>::max()));
    EXPECT_EQ(std::to_string(std::numeric_limits<long>::min()),
              written(std::numeric_limits<long>::min()));
    EXPECT_EQ(std::to_string(std::numeric_limits<unsigned long>::max()),
              written(std::numeric_limits<unsigned long>::max()));
    EXPECT_EQ("9223372036854775807", written(std::numeric_limits<long long>::max()));
    EXPECT_EQ("-9223372036854775808", written(std::numeric_limits<long long>::min()));
    EXPECT_EQ("18446744073709551615", written(std::numeric_limits<unsigned long long>::max()));
    EXPECT_EQ("0", written(0));
    EXPECT_EQ("0", written(0ULL, 16));
    EXPECT_EQ(std::string(64, '1'), written(std::numeric_limits<unsigned long long>::max(), 2));
    EXPECT_EQ("-1" + std::string(63, '0'), written(std::numeric_limits<long long>::min(), 2));
}

TEST(StreamTest, SmallNegativeNumbersAreSignExtended) {
    EXPECT_EQ("-1", written(-1));
    EXPECT_EQ("-1", written(-1L, 16));
    EXPECT_EQ("4294967295", written(static_cast<unsigned>(-1)));
}

TEST(StreamTest, Booleans) {
    EXPECT_EQ("true", written(true, 16));
    EXPECT_EQ("false", written(false));
}

TEST(StreamTest, AddressIsHexadecimalWhateverTheBase) {
    const int here = 0;
    char expected[32];
    (void)std::snprintf(expected, sizeof(expected), "%#llx",
                        static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(&here)));
    EXPECT_EQ(expected, written(static_cast<const void*>(&here), 10));
    EXPECT_EQ(expected, written(static_cast<const void*>(&here), 2));
    EXPECT_EQ("(null)", written(static_cast<const void*>(nullptr)));
}

TEST(StreamTest, AddressLeavesTheStreamsOwnConversionAlone) {
    RecordingOutput sink;
    KestrovaOstream stream(&sink);
    const int here = 0;
    stream << static_cast<const void*>(&here);
    sink.mCalls.clear();
    stream.setBase(16);
    stream << 255;
    EXPECT_EQ("ff", sink.text());
}

TEST(StreamTest, ConversionFlagsCountForEveryPiece) {
    Flags wide;
    wide.mWidth = 6;
    EXPECT_EQ("   abc", written("abc", 10, 0, wide));
    EXPECT_EQ("   -12", written(-12, 10, 0, wide));
    EXPECT_EQ("  true", written(true, 10, 0, wide));
    EXPECT_EQ("   abc", written(std::string("abc"), 10, 0, wide));
    EXPECT_EQ("abcdefg", written("abcdefg", 10, 0, wide));
    EXPECT_EQ("      ", written("", 10, 0, wide));
    wide.mFill = '*';
    EXPECT_EQ("****12", written(12U, 10, 0, wide));
    wide.mLeftAdjust = true;
    EXPECT_EQ("12****", written(12U, 10, 0, wide));
    EXPECT_EQ("abc***", written("abc", 10, 0, wide));
}

TEST(StreamTest, AlternateFormHasAPrefix) {
    Flags alternate;
    alternate.mAlternateForm = true;
    EXPECT_EQ("0xff", written(255, 16, 0, alternate));
    EXPECT_EQ("-0xff", written(-255, 16, 0, alternate));
    EXPECT_EQ("0377", written(255, 8, 0, alternate));
    EXPECT_EQ("0", written(0, 8, 0, alternate));
    EXPECT_EQ("255", written(255, 10, 0, alternate));
    EXPECT_EQ("0xffffffffffffffff",
              written(std::numeric_limits<unsigned long long>::max(), 16, 0, alternate));
}

TEST(StreamTest, PaddingIsPutAndThePieceIsWritten) {
    RecordingOutput sink;
    KestrovaOstream stream(&sink, KestrovaOstream::eFlagFlushEach);
    Flags wide;
    wide.mWidth = 3;
    stream.setConversion(wide);
    stream << "a";
    EXPECT_EQ((Calls{"p: ", "p: ", "w:a", "f"}), sink.mCalls);
    EXPECT_EQ(3U, stream.conversion().mWidth);
}

TEST(SinkTest, FormatsByItself) {
    RecordingOutput sink;
    sink.AppendFormatedString({}, "abcdef", 3);
    sink.AppendFormatedIntegerIntern({}, false, 10, true, -5);
    sink.AppendFormatedIntegerIntern({}, false, 10, false, -5);
    sink.AppendFormatedIntegerIntern({}, true, 16, false, 0xffffffffLL);
    EXPECT_EQ((Calls{"w:abc", "w:-5", "w:18446744073709551611", "w:FFFFFFFF"}), sink.mCalls);
}

}  // namespace
