// SPDX-License-Identifier: MIT
//
// Parses arbitrary bytes as the header of a reply, and compares the result with a second
// implementation. This program defines recv(), which returns the bytes.
#include "System/protocols/http/httpreplyheader.h"

#include <strings.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "base/outputlevel.h"

namespace {

constexpr int kDescriptor = 1000;
constexpr std::size_t kLongestLine = 1022;

std::string peer;          ///< everything that the peer sends
std::size_t received = 0;  ///< number of bytes received

void require(bool held) {
    if (!held) {
        std::abort();
    }
}

/// The second implementation, which reads the whole text at once.
class Reader {
public:
    std::size_t mAt = 0;
    int mVersion = 0;
    int mCode = 0;
    std::string mReason;
    std::map<std::string, std::string> mFields;

    bool readHeader() { return readStatus() && readFields(); }

    int size() const {
        for (const auto& [name, value] : mFields) {
            if (::strcasecmp(name.c_str(), "content-length") == 0) {
                std::size_t end = 0;
                return number(value, end);
            }
        }
        return 0;
    }

private:
    std::optional<std::string> line() {
        const std::size_t end = peer.find("\r\n", mAt);
        const std::size_t nul = peer.find('\0', mAt);
        const std::size_t last = std::min({end, nul, mAt + kLongestLine + 1});
        if (last == end && end != std::string::npos && end - mAt <= kLongestLine) {
            std::string text = peer.substr(mAt, end - mAt);
            mAt = end + 2;
            return text;
        }
        mAt = std::min(
            {peer.size(), mAt + kLongestLine + 2, nul == std::string::npos ? nul : nul + 1});
        return std::nullopt;
    }

    /// Like strtol(), in 32 bits; `end` is 0 if there is no number.
    static int number(const std::string& text, std::size_t& end) {
        end = 0;
        std::size_t at = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
        const bool negative = at < text.size() && text[at] == '-';
        at += at < text.size() && (negative || text[at] == '+') ? 1 : 0;
        long long value = 0;
        for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
            value = std::min(value * 10 + (text[at] - '0'), 1LL << 40);
            end = at + 1;
        }
        value = std::clamp<long long>(negative ? -value : value, INT32_MIN, INT32_MAX);
        return static_cast<int>(value);
    }

    bool readStatus() {
        const std::optional<std::string> text = line();
        if (!text || text->size() < 9) {
            return false;
        }
        const std::string version = text->substr(0, 9);
        mVersion = version == "HTTP/1.0 " ? 1 : version == "HTTP/1.1 " ? 2 : 0;
        if (mVersion == 0) {
            return false;
        }
        std::size_t end = 0;
        mCode = number(text->substr(9), end);
        if (end == 0 || 9 + end >= text->size() || (*text)[9 + end] != ' ') {
            return false;
        }
        mReason = text->substr(9 + end + 1);
        return true;
    }

    bool readFields() {
        for (;;) {
            const std::optional<std::string> text = line();
            if (!text || text->empty()) {
                return text.has_value();
            }
            const std::size_t colon = text->find(':');
            if (colon == std::string::npos) {
                return false;
            }
            const std::size_t value = text->find_first_not_of(' ', colon + 1);
            mFields[text->substr(0, colon)] =
                value == std::string::npos ? std::string() : text->substr(value);
        }
    }
};

}  // namespace

extern "C" ssize_t recv(int descriptor, void* buffer, size_t length, int flags) {
    require(descriptor == kDescriptor && length == 1 && flags == 0);
    if (received == peer.size()) {
        return 0;
    }
    *static_cast<char*>(buffer) = peer[received++];
    return 1;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // The header's bare word "Hmm" would fill the terminal.
    return std::freopen("/dev/null", "w", stdout) != nullptr ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length) {
    kestrova_debug_output_level = 0;
    peer.assign(reinterpret_cast<const char*>(data), length);
    received = 0;
    Reader expected;
    HTTPReplyHeader header;
    require(header.readHeader(kDescriptor) == expected.readHeader());
    require(received == expected.mAt);
    require(header.version() == expected.mVersion);
    require(header.code() == expected.mCode);
    require(header.reason() == expected.mReason);
    require(header.contentSize() == expected.size());
    for (const auto& [name, value] : expected.mFields) {
        require(header.getValue(name) == value);
    }
    require(header.contentSize() == expected.size());
    return 0;
}
