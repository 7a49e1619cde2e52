// SPDX-License-Identifier: MIT
//
// Reads fields from a line as the C library's scanf does on a machine whose long has 32 bits, on
// every machine: a number beyond that range becomes the nearest end of the range.
#ifndef KESTROVA_BASE_SCANNER_H
#define KESTROVA_BASE_SCANNER_H

#include <cstddef>
#include <cstdint>

namespace base {

/// Walks over a terminated text that it does not own. Every step returns false, for good, once one
/// has not matched.
class Scanner {
public:
    explicit Scanner(const char* text) : mpNext(text) {}

    /// Matches a scanf literal: white space matches any amount of it, also none.
    bool literal(const char* pattern);
    /// %Ns: skips white space and copies up to size - 1 other characters, terminated.
    bool word(char* buffer, std::size_t size);
    /// %d
    bool signedNumber(std::int32_t& value);
    /// %u for base 10, %X for base 16; `width` is the most characters to take after white space,
    /// 0 for no limit. A minus sign negates modulo 2^32, as strtoul does.
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
