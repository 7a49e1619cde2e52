// SPDX-License-Identifier: MIT
#include "System/protocols/http/httpurl.h"

#include <strings.h>

#include <cstring>

#include "base/text/boundedtext.h"

namespace {

constexpr char kScheme[] = "http://";
constexpr std::size_t kSchemeLength = sizeof(kScheme) - 1;
constexpr std::uint16_t kDefaultPort = 80;
constexpr std::uint32_t kHighestPort = 65535;

}  // namespace

void httpURL::reset() {
    mHost.clear();
    mPort = kDefaultPort;
    mPath.clear();
}

bool httpURL::parse(const char* text) {
    if (text == nullptr || ::strncasecmp(text, kScheme, kSchemeLength) != 0) {
        return false;
    }
    const char* const host = text + kSchemeLength;
    const char* next = host + std::strcspn(host, ":/");
    const char* const hostEnd = next;
    std::uint32_t port = kDefaultPort;
    if (*next == ':') {
        // A negative number becomes a large one, which is refused below.
        port = static_cast<std::uint32_t>(base::parseNumber(next + 1, next));
    }
    if (*next != '/' || port > kHighestPort) {
        reset();
        return false;
    }
    mHost.assign(host, hostEnd);
    mPort = static_cast<std::uint16_t>(port);
    mPath = next;
    return true;
}

std::string httpURL::createRequest() const {
    if (mHost.empty()) {
        return {};
    }
    constexpr std::size_t fixedParts = 128;  // an upper bound of the fixed texts
    std::string request;
    request.reserve(mPath.size() + mHost.size() + fixedParts);
    request.append("GET ").append(mPath).append(" HTTP/1.0\r\nHost: ").append(mHost);
    if (mPort != kDefaultPort) {
        request += ":" + std::to_string(mPort);
    }
    request +=
        "\r\n"
        "User-Agent: KestrovaMediaClient/1.0\r\n"
        "Connection: close\r\n"
        "\r\n";
    return request;
}
