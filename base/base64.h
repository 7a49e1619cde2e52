// SPDX-License-Identifier: MIT
//
// Base64 with the standard alphabet and padding (RFC 4648, section 4), no line breaks.
#ifndef KESTROVA_BASE_BASE64_H
#define KESTROVA_BASE_BASE64_H

/// Characters that `length` bytes encode to, 4 * ceil(length / 3); no room for a terminator is
/// counted. Negative when the length is negative or the size does not fit an int.
int base64encodeBufferSize(int length);

/// Encodes `inLength` bytes. Returns the number of characters written (not terminated), negative
/// when `outSize` is too small or the length is not valid; then nothing is written.
int base64encode(const unsigned char* in, int inLength, unsigned char* out, int outSize);

/// Bytes that this text decodes to, judged by its length and padding. Negative when the length is
/// negative or not a multiple of four.
int base64decodeBufferSize(const unsigned char* in, int length);

/// Decodes a text, strictly: whole groups of four, padding at the end only, unused bits zero, no
/// other character. Returns the number of bytes, negative on malformed text or when `outSize` is
/// too small for all of them; what `out` holds then is not defined.
int base64decode(const unsigned char* in, int inLength, unsigned char* out, int outSize);

#endif
