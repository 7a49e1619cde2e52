// SPDX-License-Identifier: MIT
#include "base/text/scanner.h"

#include <climits>

namespace base {

namespace {

bool isSpace(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// Value of a digit, or a value that no base has.
unsigned digitValue(char character) {
    if (character >= '0' && character <= '9') {
        return static_cast<unsigned>(character - '0');
    }
    if (character >= 'a' && character <= 'f') {
        return static_cast<unsigned>(character - 'a') + 10;
    }
    if (character >= 'A' && character <= 'F') {
        return static_cast<unsigned>(character - 'A') + 10;
    }
    return UINT_MAX;
}

}  // namespace

bool Scanner::fail() {
    mpNext = nullptr;
    return false;
}

void Scanner::skipSpace() {
    while (isSpace(*mpNext)) {
        ++mpNext;
    }
}

bool Scanner::literal(const char* pattern) {
    if (mpNext == nullptr) {
        return false;
    }
    for (; *pattern != '\0'; ++pattern) {
        if (isSpace(*pattern)) {
            skipSpace();
        } else if (*pattern == *mpNext) {
            ++mpNext;
        } else {
            return fail();
        }
    }
    return true;
}

bool Scanner::word(char* buffer, std::size_t size) {
    if (mpNext == nullptr) {
        return false;
    }
    skipSpace();
    if (*mpNext == '\0') {
        return fail();
    }
    for (; size > 1 && *mpNext != '\0' && !isSpace(*mpNext); --size) {
        *buffer++ = *mpNext++;
    }
    *buffer = '\0';
    return true;
}

bool Scanner::digits(Digits& result, unsigned base, unsigned width) {
    if (mpNext == nullptr) {
        return false;
    }
    skipSpace();
    unsigned room = width != 0 ? width : UINT_MAX;
    result = {*mpNext == '-', false, 0};
    if (*mpNext == '-' || *mpNext == '+') {
        ++mpNext;
        --room;
    }
    bool any = false;
    if (base == 16 && room > 0 && *mpNext == '0') {
        any = true;
        ++mpNext;
        --room;
        if (room > 0 && (*mpNext == 'x' || *mpNext == 'X')) {
            // The prefix counts against the width. Like scanf(), it is zero if the width ends here,
            // and not a number if another character follows.
            ++mpNext;
            --room;
            any = room == 0;
        }
    }
    for (; room > 0 && digitValue(*mpNext) < base; --room, ++mpNext) {
        const std::uint64_t larger = std::uint64_t{result.mMagnitude} * base + digitValue(*mpNext);
        result.mOverflow = result.mOverflow || larger > UINT32_MAX;
        result.mMagnitude = static_cast<std::uint32_t>(larger);
        any = true;
    }
    return any || fail();
}

bool Scanner::signedNumber(std::int32_t& value) {
    Digits number{};
    if (!digits(number, 10, 0)) {
        return false;
    }
    constexpr std::uint32_t largest = INT32_MAX;
    if (number.mNegative) {
        value = number.mOverflow || number.mMagnitude > largest
                    ? INT32_MIN
                    : -static_cast<std::int32_t>(number.mMagnitude);
    } else {
        value = number.mOverflow || number.mMagnitude > largest
                    ? INT32_MAX
                    : static_cast<std::int32_t>(number.mMagnitude);
    }
    return true;
}

bool Scanner::unsignedNumber(std::uint32_t& value, unsigned base, unsigned width) {
    Digits number{};
    if (!digits(number, base, width)) {
        return false;
    }
    if (number.mOverflow) {
        value = UINT32_MAX;
    } else {
        value = number.mNegative ? 0U - number.mMagnitude : number.mMagnitude;
    }
    return true;
}

}  // namespace base
