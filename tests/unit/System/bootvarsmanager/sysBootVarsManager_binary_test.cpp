// SPDX-License-Identifier: MIT
//
// Binary variables: bytes as base64 text, and sizes at the limits of their range.
#include <gtest/gtest.h>

#include <climits>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "tests/support/outputlevel.h"
#include "tests/support/sandbox.h"
#include "tests/unit/System/bootvarsmanager/bootbox.h"

using tests::BootBox;
using tests::imageOf;
using tests::inSandbox;
using tests::kPrimaryFile;
using tests::listed;
using tests::readFile;
using tests::Sandbox;
using tests::Variables;
using tests::writeFile;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes pattern(std::size_t length) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 37 + 11);
    }
    return bytes;
}

bool setBytes(const char* name, const Bytes& bytes) {
    return sysBootVarsManager().setVarB(name, bytes.data(), static_cast<unsigned>(bytes.size()));
}

/// Returns whether it is found with room for `max` bytes, with the expected bytes. If it is not
/// found, expects an unchanged length.
bool found(const char* name, unsigned max, const Bytes& expected) {
    unsigned length = 4711;
    Bytes bytes(max + 1U, 0xee);
    const bool result = sysBootVarsManager().getVarB(name, length, bytes.data(), max);
    EXPECT_EQ(bytes.back(), 0xee);
    if (!result) {
        EXPECT_EQ(length, 4711U);
        return false;
    }
    EXPECT_EQ(length, expected.size());
    EXPECT_EQ(Bytes(bytes.data(), bytes.data() + length), expected);
    return true;
}

void inBootBox(const std::function<void()>& body) {
    inSandbox([&](Sandbox& sandbox) {
        const tests::OutputLevel quiet(0);
        const BootBox box(sandbox);
        body();
    });
}

}  // namespace

TEST(BinaryBootVars, GoThroughTheFileAsBase64) {
    inBootBox([] {
        EXPECT_TRUE(setBytes("key", {0, 1, 2, 0xfd, 0xfe, 0xff, 0}));
        EXPECT_EQ(listed(), "key=AAEC/f7/AA==;");
        EXPECT_TRUE(found("key", 64, {0, 1, 2, 0xfd, 0xfe, 0xff, 0}));
        EXPECT_FALSE(found("other", 64, {}));
    });
}

TEST(BinaryBootVars, EveryLengthGoesThere) {
    inBootBox([] {
        for (unsigned length = 1; length < 40; ++length) {
            EXPECT_TRUE(setBytes("key", pattern(length)));
            EXPECT_TRUE(found("key", 100, pattern(length))) << length;
        }
    });
}

TEST(BinaryBootVars, NeedRoomForTheirBytesAndForTheirTextInTwiceThat) {
    inBootBox([] {
        for (unsigned length = 1; length < 24; ++length) {
            EXPECT_TRUE(setBytes("key", pattern(length)));
            const unsigned text = (length + 2) / 3 * 4;
            for (unsigned max = 0; max < 30; ++max) {
                const bool fits = max >= length && text < 2 * max;
                EXPECT_EQ(found("key", max, pattern(length)), fits) << length << " in " << max;
            }
        }
    });
}

TEST(BinaryBootVars, TextThatIsNoBase64IsNotFound) {
    inBootBox([] {
        writeFile(kPrimaryFile, imageOf(Variables{{"a", "AAA"},
                                                  {"b", "A A="},
                                                  {"c", "===="},
                                                  {"d", "AAB="},
                                                  {"e", "AAEC"},
                                                  {"f", "plain text!!"}}));
        for (const char* const name : {"a", "b", "c", "d", "f"}) {
            EXPECT_FALSE(found(name, 64, {})) << name;
        }
        EXPECT_TRUE(found("e", 64, {0, 1, 2}));
    });
}

TEST(BinaryBootVars, NoBytesRemoveTheVariable) {
    inBootBox([] {
        EXPECT_TRUE(setBytes("a", {1}));
        EXPECT_TRUE(sysBootVarsManager().setVarB("a", nullptr, 0));
        EXPECT_EQ(listed(), "");
        EXPECT_FALSE(found("a", 64, {}));
    });
}

TEST(BinaryBootVars, HugeSizesOverflowNothing) {
    inBootBox([] {
        EXPECT_TRUE(setBytes("a", {1, 2, 3}));
        const std::string before = readFile(kPrimaryFile);
        const unsigned char byte = 0;
        // The data is not read, because the length of its text would overflow an int.
        for (const unsigned length : {0x60000000U, 0x7ffffffdU, 0x7fffffffU, 0x80000000U,
                                      0x80000001U, 0xfffffffeU, 0xffffffffU}) {
            EXPECT_FALSE(sysBootVarsManager().setVarB("b", &byte, length)) << length;
        }
        EXPECT_EQ(readFile(kPrimaryFile), before);
        for (const unsigned max : {0x7fffffffU, 0x80000000U, 0x80000001U, 0xffffffffU}) {
            unsigned length = 0;
            unsigned char bytes[16] = {};
            EXPECT_TRUE(sysBootVarsManager().getVarB("a", length, bytes, max)) << max;
            EXPECT_EQ(length, 3U);
            EXPECT_EQ(bytes[2], 3);
        }
    });
}

TEST(BinaryBootVars, TheLargestThatFitsTheFile) {
    inBootBox([] {
        // 49140 bytes are 65520 characters, which is the most that leaves room for the name.
        EXPECT_TRUE(setBytes("k", pattern(49140)));
        EXPECT_TRUE(found("k", 49140, pattern(49140)));
        EXPECT_FALSE(setBytes("k", pattern(49141)));
        EXPECT_TRUE(found("k", 65536, pattern(49140)));
    });
}
