// SPDX-License-Identifier: MIT
//
// Texts for people: names that are safe to print, sizes, numbers.
#ifndef KESTROVA_APP_UI_HUMANTEXT_H
#define KESTROVA_APP_UI_HUMANTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace app {

/// Returns the length in bytes of the well-formed UTF-8 character at the start of the text, or 0.
std::size_t characterLength(std::string_view text);

/// Returns the text with control characters and malformed bytes as \xNN, so that a volume label or
/// a mistyped argument cannot control the terminal.
std::string printable(std::string_view text);

/// Returns the text in single quotes, printable.
std::string quoted(std::string_view text);

/// Returns the text without blanks at both ends. A drive pads its model and serial number.
std::string trimmed(std::string_view text);

/// Returns the text, padded with blanks to a width.
std::string padded(std::string_view text, std::size_t width);

/// Returns a size in bytes as "512 MiB", or from 10 GiB as "74.5 GiB"; rounded down.
std::string sizeText(unsigned long long bytes);

/// Returns an amount of bytes with more precision: "7 bytes", "20.5 KiB", "1.3 MiB".
std::string amountText(unsigned long long bytes);

/// Returns "; run it as root" for an errno that root would not get; "" for any other, and for root.
std::string rootHint(int error);

/// Returns the text of an errno, with rootHint().
std::string rootErrorText(int error);

/// Parses a decimal number from 0 to `maximum`: only digits, the whole text. Otherwise returns
/// false.
bool readDecimal(std::string_view text, unsigned long maximum, unsigned long& value);

}  // namespace app

#endif
