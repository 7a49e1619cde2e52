// SPDX-License-Identifier: MIT
#include "base/text/crc32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

std::uint32_t crcOf(const Bytes& bytes) {
    return kestrova_crc32(bytes.data(), static_cast<int>(bytes.size()));
}

std::uint32_t crcOf(const std::string& text) {
    return crcOf(Bytes(text.begin(), text.end()));
}

/// The definition, bit by bit.
std::uint32_t reference(const Bytes& bytes) {
    std::uint32_t crc = 0xffffffffU;
    for (const unsigned char byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
        }
    }
    return ~crc;
}

Bytes randomBytes(std::mt19937& random, std::size_t length) {
    Bytes bytes(length);
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(random());
    }
    return bytes;
}

TEST(Crc32Test, PublishedValues) {
    EXPECT_EQ(0xcbf43926U, crcOf("123456789"));
    EXPECT_EQ(0xe8b7be43U, crcOf("a"));
    EXPECT_EQ(0x352441c2U, crcOf("abc"));
    EXPECT_EQ(0x20159d7fU, crcOf("message digest"));
    EXPECT_EQ(0x4c2750bdU, crcOf("abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(0x414fa339U, crcOf("The quick brown fox jumps over the lazy dog"));
    EXPECT_EQ(0x190a55adU, crcOf(Bytes(32, 0x00)));
    EXPECT_EQ(0xff6cab0bU, crcOf(Bytes(32, 0xff)));
    EXPECT_EQ(0xd202ef8dU, crcOf(Bytes(1, 0x00)));
    EXPECT_EQ(0xffffffffU, crcOf(Bytes(4, 0xff)));
}

TEST(Crc32Test, NothingGivesZero) {
    const unsigned char byte = 'x';
    EXPECT_EQ(0U, kestrova_crc32(&byte, 0));
    EXPECT_EQ(0U, kestrova_crc32(nullptr, 0));
    EXPECT_EQ(0U, kestrova_crc32(&byte, -1));
    EXPECT_EQ(0U, kestrova_crc32(&byte, -2147483647 - 1));
}

// Every length and every alignment takes a different path through the steps and the remainder.
TEST(Crc32Test, AgreesWithTheDefinitionAtEveryLengthAndAlignment) {
    std::mt19937 random(30101);
    const Bytes bytes = randomBytes(random, 200);
    for (std::size_t start = 0; start < 16; ++start) {
        for (std::size_t length = 0; length < 150; ++length) {
            const Bytes part(&bytes[start], &bytes[start] + length);
            ASSERT_EQ(reference(part), kestrova_crc32(&bytes[start], static_cast<int>(length)))
                << start << " " << length;
        }
    }
}

TEST(Crc32Test, AgreesWithTheDefinitionOnLongTexts) {
    std::mt19937 random(30102);
    for (int round = 0; round < 200; ++round) {
        const Bytes bytes = randomBytes(random, random() % 5000);
        ASSERT_EQ(reference(bytes), crcOf(bytes)) << bytes.size();
    }
}

// What a receiver checks: data followed by its own checksum leaves the fixed residue.
TEST(Crc32Test, AppendedChecksumLeavesTheResidue) {
    std::mt19937 random(30103);
    for (int round = 0; round < 300; ++round) {
        Bytes bytes = randomBytes(random, random() % 300);
        const std::uint32_t crc = crcOf(bytes);
        for (unsigned shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<unsigned char>(crc >> shift));
        }
        ASSERT_EQ(0x2144df1cU, crcOf(bytes)) << bytes.size();
    }
}

// The checksum is affine: crc(a ^ b ^ c) is crc(a) ^ crc(b) ^ crc(c) for texts of one length, so a
// text can be split at any point into two halves, each with zeros in place of the other.
TEST(Crc32Test, SplitTextsAddUp) {
    std::mt19937 random(30104);
    for (int round = 0; round < 300; ++round) {
        const Bytes bytes = randomBytes(random, 1 + random() % 300);
        const auto split = static_cast<std::ptrdiff_t>(random() % (bytes.size() + 1));
        const Bytes zeros(bytes.size(), 0);
        Bytes head = zeros;
        Bytes tail = zeros;
        std::copy(bytes.begin(), bytes.begin() + split, head.begin());
        std::copy(bytes.begin() + split, bytes.end(), tail.begin() + split);
        ASSERT_EQ(crcOf(bytes), crcOf(head) ^ crcOf(tail) ^ crcOf(zeros)) << split;
    }
}

TEST(Crc32Test, EverySingleBitChangesIt) {
    std::mt19937 random(30105);
    Bytes bytes = randomBytes(random, 64);
    const std::uint32_t crc = crcOf(bytes);
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] ^ (1U << bit % 8));
        ASSERT_NE(crc, crcOf(bytes)) << bit;
        bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] ^ (1U << bit % 8));
    }
    EXPECT_EQ(crc, crcOf(bytes));
}

}  // namespace
