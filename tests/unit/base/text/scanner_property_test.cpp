// SPDX-License-Identifier: MIT
//
// Compares the scanner with the C library's sscanf() on a machine whose long has 32 bits. The
// formats are those that the system's parsers implement.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <random>
#include <string>

#include "base/text/scanner.h"

namespace {

using base::Scanner;

constexpr bool kReferenceHas32Bits = LONG_MAX == INT32_MAX;
constexpr int kLines = 150000;

/// The result of a scan; fields that did not match keep their initial value.
struct Fields {
    int mCount = 0;
    std::uint32_t mNumber[3] = {77, 77, 77};
    char mWord[2][256] = {"none", "none"};

    bool operator==(const Fields& other) const {
        return mCount == other.mCount && std::equal(mNumber, mNumber + 3, other.mNumber) &&
               std::string(mWord[0]) == other.mWord[0] && std::string(mWord[1]) == other.mWord[1];
    }
};

std::ostream& operator<<(std::ostream& out, const Fields& fields) {
    return out << fields.mCount << ": " << fields.mNumber[0] << " " << fields.mNumber[1] << " "
               << fields.mNumber[2] << " '" << fields.mWord[0] << "' '" << fields.mWord[1] << "'";
}

using Scan = Fields(const char* line);

/// Generates lines that are similar to a format: its own pieces and numbers of all sizes, with
/// pieces omitted, doubled and replaced.
class Lines {
public:
    Lines(unsigned seed, std::initializer_list<const char*> shape) : mRandom(seed), mShape(shape) {}

    std::string next() {
        std::string line;
        for (const char* const piece : mShape) {
            const unsigned choice = below(24);
            if (choice == 0) {
                continue;
            }
            line += choice == 1 ? noise() : *piece == '#' ? number() : std::string(piece);
            if (choice == 2) {
                line += noise();
            }
        }
        return line;
    }

private:
    unsigned below(unsigned limit) {
        return std::uniform_int_distribution<unsigned>(0, limit - 1)(mRandom);
    }

    std::string number() {
        static const char* const ends[] = {"2147483647",
                                           "2147483648",
                                           "2147483649",
                                           "4294967295",
                                           "4294967296",
                                           "4294967297",
                                           "0x",
                                           "0x1f",
                                           "0xg",
                                           "0",
                                           "-",
                                           "+",
                                           "9223372036854775808",
                                           "18446744073709551616"};
        static const char* const signs[] = {"", "", "", "", "-", "+", " ", "- "};
        std::string text = signs[below(std::size(signs))];
        if (below(3) == 0) {
            return text + ends[below(std::size(ends))];
        }
        for (unsigned digits = below(4) == 0 ? below(25) : 1 + below(9); digits > 0; --digits) {
            text += "0123456789abcdefABCDEF"[below(below(4) == 0 ? 22 : 10)];
        }
        return text;
    }

    std::string noise() {
        static const char alphabet[] =
            "0123456789+-xXaFg/=,: \t\n\v\f\r\xa0"
            "dev";
        std::string text;
        for (unsigned length = 1 + below(below(50) == 0 ? 300 : 4); length > 0; --length) {
            text += alphabet[below(sizeof(alphabet) - 1)];
        }
        return text;
    }

    std::mt19937 mRandom;
    std::vector<const char*> mShape;
};

void compare(Lines lines, Scan* reference, Scan* ours, int fullCount) {
    if (!kReferenceHas32Bits) {
        GTEST_SKIP() << "long has more than 32 bits: the C library's scanf is no reference here";
    }
    int complete = 0;
    for (int i = 0; i < kLines; ++i) {
        const std::string line = lines.next();
        const Fields expected = reference(line.c_str());
        ASSERT_EQ(expected, ours(line.c_str())) << "'" << line << "'";
        complete += expected.mCount == fullCount ? 1 : 0;
    }
    // Otherwise the lines would hardly test the later fields.
    EXPECT_GT(complete, kLines / 20);
}

int matched(int result) {
    return result == EOF ? 0 : result;
}

std::int32_t* asSigned(std::uint32_t* number) {
    return reinterpret_cast<std::int32_t*>(number);
}

TEST(ScannerPropertyTest, CountsOfAFormatter) {
    compare(
        Lines(20101, {"#", "/", "#"}),
        [](const char* line) {
            Fields fields;
            fields.mCount = matched(std::sscanf(line, "%d/%d", asSigned(&fields.mNumber[0]),
                                                asSigned(&fields.mNumber[1])));
            return fields;
        },
        [](const char* line) {
            Fields fields;
            Scanner scanner(line);
            fields.mCount += scanner.signedNumber(*asSigned(&fields.mNumber[0])) ? 1 : 0;
            (void)scanner.literal("/");
            fields.mCount += scanner.signedNumber(*asSigned(&fields.mNumber[1])) ? 1 : 0;
            return fields;
        },
        2);
}

TEST(ScannerPropertyTest, ProgressOfAChecker) {
    compare(
        Lines(20102, {"#", " ", "#", " ", "#", " /dev/sda1"}),
        [](const char* line) {
            Fields fields;
            fields.mCount = matched(std::sscanf(line, "%u %u %u", &fields.mNumber[0],
                                                &fields.mNumber[1], &fields.mNumber[2]));
            return fields;
        },
        [](const char* line) {
            Fields fields;
            Scanner scanner(line);
            for (std::uint32_t& number : fields.mNumber) {
                fields.mCount += scanner.unsignedNumber(number) ? 1 : 0;
                (void)scanner.literal(" ");
            }
            return fields;
        },
        3);
}

TEST(ScannerPropertyTest, EntryOfAPartitionTable) {
    compare(
        Lines(20103, {"/dev/sda1", " ", "\t: start=", " ", "#", ", size=", " ", "#", ", Id=", "#"}),
        [](const char* line) {
            Fields fields;
            fields.mCount =
                matched(std::sscanf(line, "%127s\t: start= %*u, size=%u, Id=%2X", fields.mWord[0],
                                    &fields.mNumber[0], &fields.mNumber[1]));
            return fields;
        },
        [](const char* line) {
            Fields fields;
            Scanner scanner(line);
            std::uint32_t start = 0;
            fields.mCount += scanner.word(fields.mWord[0], 128) ? 1 : 0;
            (void)scanner.literal("\t: start= ");
            (void)scanner.unsignedNumber(start);
            (void)scanner.literal(", size=");
            fields.mCount += scanner.unsignedNumber(fields.mNumber[0]) ? 1 : 0;
            (void)scanner.literal(", Id=");
            fields.mCount += scanner.unsignedNumber(fields.mNumber[1], 16, 2) ? 1 : 0;
            return fields;
        },
        3);
}

TEST(ScannerPropertyTest, LineOfTheMountTable) {
    compare(
        Lines(20104, {"/dev/sda1", " ", "/dvr", " ", "xfs rw 0 0\n"}),
        [](const char* line) {
            Fields fields;
            fields.mCount =
                matched(std::sscanf(line, "%255s %255s %*s", fields.mWord[0], fields.mWord[1]));
            return fields;
        },
        [](const char* line) {
            Fields fields;
            Scanner scanner(line);
            fields.mCount += scanner.word(fields.mWord[0], sizeof(fields.mWord[0])) ? 1 : 0;
            (void)scanner.literal(" ");
            fields.mCount += scanner.word(fields.mWord[1], sizeof(fields.mWord[1])) ? 1 : 0;
            return fields;
        },
        2);
}

}  // namespace
