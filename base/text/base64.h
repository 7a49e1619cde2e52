// SPDX-License-Identifier: MIT
//
// Base64 with the standard alphabet and padding (RFC 4648, section 4), no line breaks.
#ifndef KESTROVA_BASE_TEXT_BASE64_H
#define KESTROVA_BASE_TEXT_BASE64_H

/// Returns the number of characters that `length` bytes encode to, 4 * ceil(length / 3), without a
/// terminator. Negative if the length is negative or the result does not fit an int.
int base64encodeBufferSize(int length);

/// Encodes `inLength` bytes. Returns the number of characters written; the text is not terminated.
/// Negative, and nothing is written, if `outSize` is too small or the length is invalid.
int base64encode(const unsigned char* in, int inLength, unsigned char* out, int outSize);

/// Returns the number of bytes that the text decodes to, from its length and padding alone.
/// Negative if the length is negative or not a multiple of four.
int base64decodeBufferSize(const unsigned char* in, int length);

/// Decodes a text strictly: groups of four, padding only at the end, unused bits zero, no other
/// character. Returns the number of bytes. Negative if the text is malformed or `outSize` is too
/// small; the contents of `out` are then undefined.
int base64decode(const unsigned char* in, int inLength, unsigned char* out, int outSize);

#endif
