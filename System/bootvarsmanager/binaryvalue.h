// SPDX-License-Identifier: MIT
//
// Bytes as the text of a boot variable: base64 (RFC 4648).
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_BINARYVALUE_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_BINARYVALUE_H

#include <string>
#include <string_view>

#include "base/vector.h"

/// Encodes bytes. Returns false when their text has no length that an int can hold.
bool encodeBinaryValue(const unsigned char* data, unsigned length, std::string& text);

/// Decodes a text. Returns false, with `data` unchanged, when it is not base64.
bool decodeBinaryValue(std::string_view text, KestrovaVector<unsigned char>& data);

#endif
