// SPDX-License-Identifier: MIT
#include "base/text/base64.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr char kUntouched = '#';

const unsigned char* bytesOf(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

int lengthOf(const std::string& text) {
    return static_cast<int>(text.size());
}

/// Result and output buffer of an operation.
struct Outcome {
    int mResult;
    std::string mBuffer;
};

using Operation = int (*)(const unsigned char*, int, unsigned char*, int);

Outcome run(Operation operation, const std::string& in, int outSize) {
    std::vector<unsigned char> out(static_cast<std::size_t>(outSize) + 4, kUntouched);
    const int result = operation(bytesOf(in), lengthOf(in), out.data(), outSize);
    return {result, std::string(out.begin(), out.end())};
}

std::string encoded(const std::string& in) {
    const int size = base64encodeBufferSize(lengthOf(in));
    const Outcome outcome = run(base64encode, in, size);
    EXPECT_EQ(size, outcome.mResult);
    EXPECT_EQ("####", outcome.mBuffer.substr(static_cast<std::size_t>(size)));
    return outcome.mBuffer.substr(0, static_cast<std::size_t>(size));
}

std::string decoded(const std::string& in) {
    const int size = base64decodeBufferSize(bytesOf(in), lengthOf(in));
    if (size < 0) {
        return "malformed length";
    }
    const Outcome outcome = run(base64decode, in, size);
    EXPECT_EQ("####", outcome.mBuffer.substr(static_cast<std::size_t>(size)));
    if (outcome.mResult < 0) {
        return "malformed text";
    }
    EXPECT_EQ(size, outcome.mResult);
    return outcome.mBuffer.substr(0, static_cast<std::size_t>(size));
}

TEST(Base64Test, PublishedVectors) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, text] : vectors) {
        EXPECT_EQ(text, encoded(plain));
        EXPECT_EQ(plain, decoded(text));
    }
}

TEST(Base64Test, WholeAlphabetBothWays) {
    std::string alphabet;
    for (const char first : {'A', 'a', '0'}) {
        for (int i = 0; i < (first == '0' ? 10 : 26); ++i) {
            alphabet += static_cast<char>(first + i);
        }
    }
    alphabet += "+/";
    EXPECT_EQ(alphabet, encoded(decoded(alphabet)));
    EXPECT_EQ("++++", encoded("\xfb\xef\xbe"));
    EXPECT_EQ("////", encoded("\xff\xff\xff"));
}

TEST(Base64Test, EncodedSizeIsFourForEveryThreeBegun) {
    const std::pair<int, int> sizes[] = {{0, 0},
                                         {1, 4},
                                         {2, 4},
                                         {3, 4},
                                         {4, 8},
                                         {5, 8},
                                         {6, 8},
                                         {7, 12},
                                         {57, 76},
                                         {58, 80},
                                         {1000000, 1333336}};
    for (const auto& [length, size] : sizes) {
        EXPECT_EQ(size, base64encodeBufferSize(length)) << length;
    }
}

TEST(Base64Test, EncodedSizeBeyondAnIntIsRefused) {
    constexpr int largest = INT_MAX / 4 * 3;  // a multiple of three
    EXPECT_EQ(INT_MAX / 4 * 4, base64encodeBufferSize(largest));
    EXPECT_GT(0, base64encodeBufferSize(largest + 1));
    EXPECT_GT(0, base64encodeBufferSize(INT_MAX));
    EXPECT_GT(0, base64encodeBufferSize(-1));
    EXPECT_GT(0, base64encodeBufferSize(INT_MIN));
}

TEST(Base64Test, EncodingRefusesASmallBufferOrALengthAndWritesNothing) {
    for (int size = 0; size < 8; ++size) {
        const Outcome outcome = run(base64encode, "fooba", size);
        EXPECT_GT(0, outcome.mResult) << size;
        EXPECT_EQ(std::string(outcome.mBuffer.size(), kUntouched), outcome.mBuffer) << size;
    }
    unsigned char out[8] = {};
    EXPECT_GT(0, base64encode(bytesOf("foo"), 3, out, -1));
    EXPECT_GT(0, base64encode(bytesOf("foo"), -1, out, 8));
    EXPECT_GT(0, base64encode(bytesOf("foo"), INT_MAX, out, INT_MAX));
    EXPECT_EQ(0, out[0]);
    EXPECT_EQ(0, base64encode(nullptr, 0, nullptr, 0));
}

TEST(Base64Test, DecodedSizeFollowsLengthAndPadding) {
    const std::pair<const char*, int> sizes[] = {{"", 0},     {"Zg==", 1},     {"Zm8=", 2},
                                                 {"Zm9v", 3}, {"Zm9vYg==", 4}, {"Zm9vYmE=", 5}};
    for (const auto& [text, size] : sizes) {
        EXPECT_EQ(size, base64decodeBufferSize(bytesOf(text), lengthOf(text))) << text;
    }
    for (const int length : {-1, -4, INT_MIN, 1, 2, 3, 5, 7, INT_MAX}) {
        EXPECT_GT(0, base64decodeBufferSize(bytesOf("Zm9vYmFy"), length)) << length;
    }
}

// Only the last two characters are read, so untouched pages serve as the rest.
TEST(Base64Test, DecodedSizeOfTheLongestText) {
    constexpr std::size_t longest = INT_MAX / 4 * 4;
    void* const text = ::mmap(nullptr, longest, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (text == MAP_FAILED) {
        GTEST_SKIP() << "no address space for a text of 2 GiB";
    }
    auto* const bytes = static_cast<unsigned char*>(text);
    EXPECT_EQ(1610612733, base64decodeBufferSize(bytes, static_cast<int>(longest)));
    bytes[longest - 1] = '=';
    EXPECT_EQ(1610612732, base64decodeBufferSize(bytes, static_cast<int>(longest)));
    bytes[longest - 2] = '=';
    EXPECT_EQ(1610612731, base64decodeBufferSize(bytes, static_cast<int>(longest)));
    EXPECT_EQ(0, ::munmap(text, longest));
}

TEST(Base64Test, DecodingRefusesEveryMalformedText) {
    for (const char* const text :
         {"Z",       "Zg",         "Zg=",      "Zm9vY", "=",      "==",       "===",      "====",
          "Z===",    "=g==",       "=Zg=",     "Zg=v",  "Z=g=",   "Zg==Zm8=", "Zm8=Zm8=", "Zm=v",
          "Z=9v",    "=m9v",       "Zm9v====", "Zm9v=", "Zm9v\n", "Zm9\n",    "Zm9 ",     " Zm9",
          "Zm 9",    "Zm-_",       "Zm9-",     "Zm9_",  "Zm9.",   "Zm9,",     "Zm9\x7f",  "Zm9\x80",
          "Zm9\xff", "\xc3\xa9==", "Zm9@",     "Zm9[",  "Zm9`",   "Zm9{",     "Zm9:",     "Zm9!"}) {
        EXPECT_EQ("malformed", decoded(text).substr(0, 9)) << text;
    }
    EXPECT_EQ("malformed text", decoded(std::string("Zm9\0", 4)));
    EXPECT_EQ("malformed text", decoded(std::string("\0\0\0\0", 4)));
    EXPECT_EQ("malformed text", decoded(std::string("Z\0==", 4)));
}

// Two encodings of the same bytes would be ambiguous.
TEST(Base64Test, DecodingRefusesUnusedBitsThatAreNotZero) {
    for (const char* const text : {"Zh==", "Zi==", "Zv==", "Z/==", "Zm9=", "Zm+=", "Zm/="}) {
        EXPECT_EQ("malformed text", decoded(text)) << text;
    }
}

TEST(Base64Test, DecodingRefusesASmallBuffer) {
    for (int size = 0; size < 5; ++size) {
        EXPECT_GT(0, run(base64decode, "Zm9vYmE=", size).mResult) << size;
    }
    EXPECT_EQ(5, run(base64decode, "Zm9vYmE=", 5).mResult);
    EXPECT_EQ(5, run(base64decode, "Zm9vYmE=", 100).mResult);
    unsigned char out[4] = {};
    EXPECT_GT(0, base64decode(bytesOf("Zm9v"), 4, out, -1));
    EXPECT_GT(0, base64decode(bytesOf("Zm9v"), -4, out, 4));
    EXPECT_EQ(0, base64decode(nullptr, 0, nullptr, 0));
}

TEST(Base64Test, DecodingIsTheInverseOfEncoding) {
    std::mt19937 random(40101);
    for (std::size_t length = 0; length < 400; ++length) {
        std::string plain(length, ' ');
        for (char& byte : plain) {
            byte = static_cast<char>(random());
        }
        ASSERT_EQ(plain, decoded(encoded(plain))) << length;
    }
}

}  // namespace
