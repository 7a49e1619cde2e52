// SPDX-License-Identifier: MIT
//
// Reads fields from a line like scanf() on a machine with a 32-bit long, on every machine: a number
// outside that range becomes the nearest limit.
#ifndef KESTROVA_BASE_TEXT_SCANNER_H
#define KESTROVA_BASE_TEXT_SCANNER_H

#include <cstddef>
#include <cstdint>

namespace base {

/// Reads a NUL-terminated string, which it does not own, from left to right. After the first
/// mismatch every call returns false.
class Scanner {
public:
    explicit Scanner(const char* text) : mpNext(text) {}

    /// Matches a scanf literal. White space in the pattern matches any amount of white space,
    /// including none.
    bool literal(const char* pattern);
    /// Like %Ns: skips white space, then copies up to size - 1 other characters and terminates
    /// them.
    bool word(char* buffer, std::size_t size);
    /// Like %d.
    bool signedNumber(std::int32_t& value);
    /// Like %u for base 10 and %X for base 16. `width` limits the characters after the white space;
    /// 0 means no limit. A minus sign negates modulo 2^32, like strtoul().
    bool unsignedNumber(std::uint32_t& value, unsigned base = 10, unsigned width = 0);

private:
    struct Digits {
        bool mNegative;
        bool mOverflow;
        std::uint32_t mMagnitude;
    };
    bool digits(Digits& result, unsigned base, unsigned width);
    void skipSpace();
    bool fail();

    const char* mpNext;
};

}  // namespace base

#endif
