// SPDX-License-Identifier: MIT
#include "app/ui/humantext.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace app {

namespace {

unsigned byteAt(std::string_view text, std::size_t position) {
    return static_cast<unsigned char>(text[position]);
}

/// Length that the first byte of a character announces, and the smallest value that needs it.
struct CharacterClass {
    std::size_t mLength;
    unsigned mValue;
    unsigned mLeast;
};

CharacterClass classOf(unsigned first) {
    if (first < 0x80) {
        return {1, first, 0};
    }
    if ((first & 0xe0) == 0xc0) {
        return {2, first & 0x1f, 0x80};
    }
    if ((first & 0xf0) == 0xe0) {
        return {3, first & 0x0f, 0x800};
    }
    if ((first & 0xf8) == 0xf0) {
        return {4, first & 0x07, 0x10000};
    }
    return {0, 0, 0};
}

bool isControl(std::string_view character) {
    const unsigned first = byteAt(character, 0);
    if (character.size() == 1) {
        return first < 0x20 || first == 0x7f;
    }
    // The second range of control characters, U+0080 to U+009F, which terminals interpret as well.
    return first == 0xc2 && byteAt(character, 1) < 0xa0;
}

}  // namespace

std::size_t characterLength(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const CharacterClass kind = classOf(byteAt(text, 0));
    if (kind.mLength == 0 || kind.mLength > text.size()) {
        return 0;
    }
    unsigned value = kind.mValue;
    for (std::size_t i = 1; i < kind.mLength; ++i) {
        if ((byteAt(text, i) & 0xc0) != 0x80) {
            return 0;
        }
        value = value << 6 | (byteAt(text, i) & 0x3f);
    }
    const bool surrogate = value >= 0xd800 && value < 0xe000;
    return value < kind.mLeast || surrogate || value > 0x10ffff ? 0 : kind.mLength;
}

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        std::size_t length = characterLength(text);
        if (length == 0 || isControl(text.substr(0, length))) {
            char escape[8];
            (void)std::snprintf(escape, sizeof(escape), "\\x%02x", byteAt(text, 0));
            result += escape;
            length = 1;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string quoted(std::string_view text) {
    return "'" + printable(text) + "'";
}

std::string trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(' ');
    if (begin == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(begin, text.find_last_not_of(' ') - begin + 1));
}

std::string padded(std::string_view text, std::size_t width) {
    std::string result(text);
    if (result.size() < width) {
        result.append(width - result.size(), ' ');
    }
    return result;
}

std::string sizeText(unsigned long long bytes) {
    constexpr unsigned long long mebibyte = 1ULL << 20U;
    constexpr unsigned long long gibibyte = 1ULL << 30U;
    constexpr unsigned long long preciseBelow = 10 * gibibyte;
    if (bytes < preciseBelow) {
        return std::to_string(bytes / mebibyte) + " MiB";
    }
    const unsigned long long tenths = bytes / (gibibyte / 10);
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " GiB";
}

std::string amountText(unsigned long long bytes) {
    constexpr unsigned long long step = 1024;
    if (bytes < step) {
        return std::to_string(bytes) + " bytes";
    }
    const char* unit = "KMGTPE";
    unsigned long long value = bytes;
    for (; value >= step * step; value /= step) {
        ++unit;
    }
    const unsigned long long tenths = value * 10 / step;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + *unit + "iB";
}

std::string rootHint(int error) {
    const bool forbidden = error == EACCES || error == EPERM;
    return forbidden && ::geteuid() != 0 ? "; run it as root" : "";
}

std::string rootErrorText(int error) {
    return std::strerror(error) + rootHint(error);
}

bool readDecimal(std::string_view text, unsigned long maximum, unsigned long& value) {
    if (text.empty()) {
        return false;
    }
    unsigned long number = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') {
            return false;
        }
        const auto digit = static_cast<unsigned long>(character - '0');
        if (number > (maximum - digit) / 10) {
            return false;
        }
        number = number * 10 + digit;
    }
    value = number;
    return true;
}

}  // namespace app
