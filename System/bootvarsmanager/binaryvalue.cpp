// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/binaryvalue.h"

#include <climits>
#include <cstddef>

#include "base/text/base64.h"

bool encodeBinaryValue(const unsigned char* data, unsigned length, std::string& text) {
    const int size = length > INT_MAX ? -1 : base64encodeBufferSize(static_cast<int>(length));
    if (size < 0) {
        return false;
    }
    std::string encoded(static_cast<std::size_t>(size), '\0');
    const int count = base64encode(data, static_cast<int>(length),
                                   reinterpret_cast<unsigned char*>(encoded.data()), size);
    if (count < 0) {
        return false;
    }
    encoded.resize(static_cast<std::size_t>(count));
    text.swap(encoded);
    return true;
}

bool decodeBinaryValue(std::string_view text, KestrovaVector<unsigned char>& data) {
    const auto* const encoded = reinterpret_cast<const unsigned char*>(text.data());
    const auto length = static_cast<int>(text.size());
    const int size = base64decodeBufferSize(encoded, length);
    if (size < 0) {
        return false;
    }
    KestrovaVector<unsigned char> decoded(static_cast<std::size_t>(size));
    if (base64decode(encoded, length, decoded.data(), size) != size) {
        return false;
    }
    data.swap(decoded);
    return true;
}
