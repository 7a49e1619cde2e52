// SPDX-License-Identifier: MIT
//
// Which images are boot environments, and what is read from their areas.
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "System/bootvarsmanager/bootenvironment.h"
#include "tests/support/capture.h"
#include "tests/support/outputlevel.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using tests::areaOf;
using tests::imageOf;
using tests::toText;
using tests::Variables;

namespace {

const std::string kAb = {"a\0x\0\0b\0y\0\0", 10};

/// Copies the bytes to a separate allocation, so that a sanitizer detects a read beyond them.
class Exact {
public:
    explicit Exact(const std::string& bytes)
        : mBytes(new char[bytes.size()]), mLength(static_cast<unsigned>(bytes.size())) {
        bytes.copy(mBytes.get(), bytes.size());
    }
    const char* text() const { return mBytes.get(); }
    const unsigned char* bytes() const {
        return reinterpret_cast<const unsigned char*>(mBytes.get());
    }
    unsigned length() const { return mLength; }

private:
    std::unique_ptr<char[]> mBytes;
    unsigned mLength;
};

std::string parsed(const std::string& area, Variables vars = {}) {
    const Exact exact(area);
    parseEnvironment(vars, exact.text(), exact.length());
    return toText(vars);
}

/// Returns the variables that a loader reads from an image.
std::string loaded(const std::string& image) {
    const tests::OutputLevel quiet(0);
    const Exact exact(image);
    BootEnvHeader header = {};
    if (!validateEnvironment(header, exact.bytes(), exact.length())) {
        return "invalid";
    }
    Variables vars;
    parseEnvironment(vars, exact.text() + kBootEnvHeaderSize, header.size);
    return toText(vars);
}

struct Verdict {
    bool mValid;
    BootEnvHeader mHeader;
    std::string mLog;
};

Verdict validate(const std::string& image) {
    const Exact exact(image);
    const tests::Capture capture;
    BootEnvHeader header = {};
    const bool valid = validateEnvironment(header, exact.bytes(), exact.length());
    EXPECT_EQ(capture.errors(), "");
    return {valid, header, tests::withoutContext(capture.output())};
}

std::string withFlags(std::uint32_t flags) {
    std::string image = imageOf(kAb);
    for (unsigned i = 0; i < 4; ++i) {
        image[i] = static_cast<char>(flags >> (8 * i));
    }
    return image;
}

std::string withSize(std::uint32_t size) {
    std::string image = imageOf(kAb);
    for (unsigned i = 0; i < 4; ++i) {
        image[8 + i] = static_cast<char>(size >> (24 - 8 * i));
    }
    return image;
}

std::string badFlagsLine(const char* flags) {
    return std::string("badflags ") + flags + " vm:ff000000-0 dm:ff0000-0\n";
}

}  // namespace

TEST(ValidateEnvironment, GivesTheHeaderInHostOrder) {
    const Verdict verdict = validate(imageOf(kAb));
    EXPECT_TRUE(verdict.mValid);
    EXPECT_EQ(verdict.mLog, "");
    EXPECT_EQ(verdict.mHeader.flags, 0x00ffffffU);
    EXPECT_EQ(verdict.mHeader.crc, tests::plainCrc(kAb));
    EXPECT_EQ(verdict.mHeader.size, kAb.size());
}

TEST(ValidateEnvironment, RejectsLessThanAHeaderWithoutAWord) {
    const std::string image = imageOf("");
    for (std::size_t length = 0; length < 12; ++length) {
        const Verdict verdict = validate(image.substr(0, length));
        EXPECT_FALSE(verdict.mValid) << length;
        EXPECT_EQ(verdict.mLog, "") << length;
    }
    EXPECT_TRUE(validate(image).mValid);
}

TEST(ValidateEnvironment, LooksAtTheUpperHalfOfTheFlags) {
    const struct {
        std::uint32_t mFlags;
        const char* mRejected;
    } cases[] = {
        {0x00ffffff, nullptr},    {0x00ff0000, nullptr},    {0x00010000, nullptr},
        {0x00800000, nullptr},    {0x0001ffff, nullptr},    {0x00000000, "0"},
        {0x0000ffff, "ffff"},     {0x01ffffff, "1ffffff"},  {0x80ffffff, "80ffffff"},
        {0xffffffff, "ffffffff"}, {0xff000000, "ff000000"}, {0x01000000, "1000000"},
    };
    for (const auto& each : cases) {
        const Verdict verdict = validate(withFlags(each.mFlags));
        EXPECT_EQ(verdict.mValid, each.mRejected == nullptr) << each.mFlags;
        EXPECT_EQ(verdict.mLog, each.mRejected == nullptr ? "" : badFlagsLine(each.mRejected));
    }
}

TEST(ValidateEnvironment, ChecksTheFlagsBeforeTheSize) {
    EXPECT_EQ(validate(std::string(12, '\xff')).mLog, badFlagsLine("ffffffff"));
}

TEST(ValidateEnvironment, RejectsASizeBeyondTheFileWithoutAWord) {
    for (const std::uint32_t size : {11U, 12U, 21U, 22U, 23U, 65524U, 65536U, 0x7fffffffU,
                                     0x80000000U, 0xfffffff3U, 0xfffffff4U, 0xffffffffU}) {
        const Verdict verdict = validate(withSize(size));
        EXPECT_FALSE(verdict.mValid) << size;
        EXPECT_EQ(verdict.mLog, "") << size;
        EXPECT_EQ(verdict.mHeader.size, size);
    }
}

TEST(ValidateEnvironment, TellsBothChecksumsWhenTheyDiffer) {
    std::string image = imageOf(kAb);
    image[12] = 'c';
    char line[64];
    (void)std::snprintf(line, sizeof(line), "bad crc  %x %x\n", tests::plainCrc(image.substr(12)),
                        tests::plainCrc(kAb));
    const Verdict verdict = validate(image);
    EXPECT_FALSE(verdict.mValid);
    EXPECT_EQ(verdict.mLog, line);
}

TEST(ValidateEnvironment, HasContextInFrontOfItsLines) {
    const Exact image(withFlags(0));
    const tests::Capture capture;
    BootEnvHeader header = {};
    EXPECT_FALSE(validateEnvironment(header, image.bytes(), image.length()));
    EXPECT_EQ(capture.output().rfind("System/bootvarsmanager/sysBootVarsManager:", 0), 0U);
}

TEST(ValidateEnvironment, ComputesNoChecksumOfAnEmptyArea) {
    std::string image = imageOf("");
    image.replace(4, 4, "\x12\x34\x56\x78");
    const Verdict verdict = validate(image);
    EXPECT_TRUE(verdict.mValid);
    EXPECT_EQ(verdict.mLog, "");
    EXPECT_EQ(verdict.mHeader.crc, 0x12345678U);
    EXPECT_EQ(loaded(image), "");
}

TEST(ValidateEnvironment, IgnoresWhatFollowsTheArea) {
    EXPECT_EQ(loaded(imageOf(kAb) + "c" + std::string("\0z\0\0", 4)), "a=x;b=y;");
    EXPECT_EQ(loaded(imageOf(kAb) + std::string(70000, 'z')), "a=x;b=y;");
}

TEST(ValidateEnvironment, AcceptsTheLargestArea) {
    const std::string area =
        "k" + std::string(1, '\0') + std::string(kBootEnvAreaSize - 4, 'v') + std::string(2, '\0');
    ASSERT_EQ(area.size(), kBootEnvAreaSize);
    EXPECT_EQ(loaded(imageOf(area)), "k=" + std::string(kBootEnvAreaSize - 4, 'v') + ";");
}

TEST(ParseEnvironment, ReadsRecordsUntilOneIsMalformed) {
    const struct {
        std::string mArea;
        const char* mVars;
    } cases[] = {
        {"", ""},
        {kAb, "a=x;b=y;"},
        {{"a\0x\0\0b\0y\0z", 10}, "a=x;"},               // no second NUL
        {{"a\0x\0\0b\0y\0", 9}, "a=x;"},                 // the second NUL is after the area
        {{"a\0x\0\0b\0y", 8}, "a=x;"},                   // no NUL after the value
        {{"a\0x\0\0b\0", 7}, "a=x;"},                    // no value
        {{"a\0x\0\0b", 6}, "a=x;"},                      // no NUL after the key
        {{"a\0x\0\0", 5}, "a=x;"},                       // nothing more
        {{"a\0x\0\0\0", 6}, "a=x;"},                     // the empty key without a value
        {{"a\0x\0\0\0\0\0b\0y\0\0", 13}, "=;a=x;b=y;"},  // an empty record is a record
        {{"\0v\0\0", 4}, "=v;"},                         // the empty key
        {{"a\0\0\0b\0y\0\0", 9}, "a=;b=y;"},             // an empty value
        {{"a\0x\0\0a\0y\0\0", 10}, "a=y;"},              // the last one wins
        {{"b\0y\0\0a\0x\0\0", 10}, "a=x;b=y;"},
        {{"\0", 1}, ""},
        {{"\0\0", 2}, ""},
        {"aaaa", ""},
        {{"a=1\0b=2\0\0", 9}, "a=1=b=2;"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(parsed(each.mArea), each.mVars) << testing::PrintToString(each.mArea);
    }
}

TEST(ParseEnvironment, AddsToTheMap) {
    EXPECT_EQ(parsed(kAb, {{"a", "old"}, {"c", "kept"}}), "a=x;b=y;c=kept;");
}

TEST(ParseEnvironment, EveryCutAreaGivesTheWholeRecordsBeforeTheCut) {
    const Variables vars = {{"alpha", "1"}, {"beta", "22"}, {"gamma", "333"}};
    const std::string area = areaOf(vars);
    for (std::size_t length = 0; length <= area.size(); ++length) {
        Variables expected;
        std::size_t used = 0;
        for (const auto& [key, value] : vars) {
            used += key.size() + value.size() + 3;
            if (used <= length) {
                expected[key] = value;
            }
        }
        EXPECT_EQ(parsed(area.substr(0, length)), toText(expected)) << length;
    }
}

TEST(ParseEnvironment, RandomAreasAreReadAsByTheBook) {
    std::mt19937 random(20090412);
    for (int round = 0; round < 20000; ++round) {
        std::string area(random() % 24, '\0');
        for (char& byte : area) {
            byte = "\0\0ab"[random() % 4];
        }
        Variables expected;
        for (std::size_t at = 0;;) {
            const std::size_t keyEnd = area.find('\0', at);
            const std::size_t end =
                keyEnd == std::string::npos ? keyEnd : area.find('\0', keyEnd + 1);
            if (end == std::string::npos || end + 1 >= area.size() || area[end + 1] != '\0') {
                break;
            }
            expected[area.substr(at, keyEnd - at)] = area.substr(keyEnd + 1, end - keyEnd - 1);
            at = end + 2;
        }
        ASSERT_EQ(parsed(area), toText(expected)) << testing::PrintToString(area);
    }
}

namespace {

const Variables kImages[] = {
    {},
    {{"a", "x"}},
    {{"bootcmd", "run nand"}, {"serial", "KV-0001"}, {"syslog", "192.168.1.20"}},
    {{"long", std::string(300, 'v')}, {"other", std::string(200, 'o')}},
};

bool sizeIsZero(const std::string& image) {
    return image.substr(8, 4) == std::string(4, '\0');
}

}  // namespace

TEST(BootImage, EverySingleBitFlipIsRejectedOrHarmlessButForASizeOfZero) {
    int blind = 0;
    for (const Variables& vars : kImages) {
        const std::string image = imageOf(vars);
        for (std::size_t bit = 0; bit < image.size() * 8; ++bit) {
            std::string flipped = image;
            flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
            const std::string found = loaded(flipped);
            if (sizeIsZero(flipped) && !sizeIsZero(image)) {
                // Without an area the checksum covers nothing.
                EXPECT_EQ(found, "");
                ++blind;
            } else if (found != "invalid") {
                ASSERT_EQ(found, toText(vars)) << "bit " << bit;
            }
        }
    }
    // Sizes of these images are 0, 5, 55 and 515: a single bit flip cannot make one of them 0.
    EXPECT_EQ(blind, 0);
}

TEST(BootImage, ASizeOfOneBitThatFlipsToZeroIsTheBlindSpot) {
    for (std::size_t size = 8; size <= 32768; size *= 2) {
        const Variables vars = {{"k", std::string(size - 4, 'v')}};
        std::string image = imageOf(vars);
        ASSERT_EQ(image.size(), size + 12);
        ASSERT_EQ(loaded(image), toText(vars));
        image.replace(8, 4, std::string(4, '\0'));
        EXPECT_EQ(loaded(image), "") << size;
    }
}

TEST(BootImage, EveryTruncationIsRejected) {
    for (const Variables& vars : kImages) {
        const std::string image = imageOf(vars);
        for (std::size_t length = 0; length < image.size(); ++length) {
            ASSERT_EQ(loaded(image.substr(0, length)), "invalid") << length;
        }
    }
}

TEST(BootImage, EveryTwoBitFlipInAnAreaIsRejected) {
    const std::string image = imageOf(kImages[2]);
    for (std::size_t first = 96; first < image.size() * 8; ++first) {
        for (std::size_t second = first + 1; second < image.size() * 8; ++second) {
            std::string flipped = image;
            for (const std::size_t bit : {first, second}) {
                flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
            }
            ASSERT_EQ(loaded(flipped), "invalid") << first << " " << second;
        }
    }
}
