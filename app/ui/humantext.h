// SPDX-License-Identifier: MIT
//
// Texts for people: names that are safe to print, sizes, numbers.
#ifndef KESTROVA_APP_UI_HUMANTEXT_H
#define KESTROVA_APP_UI_HUMANTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace app {

/// Length in bytes of the well-formed UTF-8 character at the beginning of the text; 0 when there is
/// none.
std::size_t characterLength(std::string_view text);

/// The text with control characters and malformed bytes written as \xNN: a volume label or a
/// mistyped argument must not drive somebody's terminal.
std::string printable(std::string_view text);

/// The text between single quotes, printable.
std::string quoted(std::string_view text);

/// The text without blanks at both ends. A drive pads its model and serial number.
std::string trimmed(std::string_view text);

/// The text, filled up with blanks to a width.
std::string padded(std::string_view text, std::size_t width);

/// A size in bytes as "512 MiB", or from 10 GiB as "74.5 GiB"; rounded down.
std::string sizeText(unsigned long long bytes);

/// An amount of bytes from 0 on, finer: "7 bytes", "20.5 KiB", "1.3 MiB".
std::string amountText(unsigned long long bytes);

/// "; run it as root" for an errno that root would not get; "" for any other, and for root.
std::string rootHint(int error);

/// What an errno means, with rootHint().
std::string rootErrorText(int error);

/// Reads a decimal number from 0 to `maximum`: digits only, the whole text. Otherwise returns
/// false.
bool readDecimal(std::string_view text, unsigned long maximum, unsigned long& value);

}  // namespace app

#endif
