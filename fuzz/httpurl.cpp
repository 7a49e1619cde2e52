// SPDX-License-Identifier: MIT
//
// Parses arbitrary text as an address, and compares the result with a second implementation.
#include "System/protocols/http/httpurl.h"

#include <cstdlib>
#include <optional>
#include <string>

namespace {

void require(bool held) {
    if (!held) {
        std::abort();
    }
}

std::string lower(std::string text) {
    for (char& letter : text) {
        letter = static_cast<char>(letter >= 'A' && letter <= 'Z' ? letter + 'a' - 'A' : letter);
    }
    return text;
}

/// Parses the port between ':' and '/': blanks, a sign, digits. Returns nothing for a negative or
/// too large one.
std::optional<int> portOf(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\n\v\f\r");
    if (text.empty()) {
        return 0;
    }
    if (first == std::string::npos) {
        return std::nullopt;
    }
    const bool negative = text[first] == '-';
    const std::size_t digits = negative || text[first] == '+' ? first + 1 : first;
    if (digits == text.size()) {
        return std::nullopt;
    }
    int port = 0;
    for (std::size_t at = digits; at < text.size(); ++at) {
        if (text[at] < '0' || text[at] > '9') {
            return std::nullopt;
        }
        port = port > 65535 ? port : port * 10 + (text[at] - '0');
    }
    return port > 65535 || (negative && port != 0) ? std::nullopt : std::optional(port);
}

struct Fields {
    std::string mHost;
    int mPort = 80;
    std::string mPath;
};

/// Parses the text after "http://".
std::optional<Fields> fieldsOf(const std::string& text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    Fields fields = {text.substr(0, slash), 80, text.substr(slash)};
    const std::size_t colon = fields.mHost.find(':');
    if (colon != std::string::npos) {
        const std::optional<int> port = portOf(fields.mHost.substr(colon + 1));
        if (!port) {
            return std::nullopt;
        }
        fields.mHost.resize(colon);
        fields.mPort = *port;
    }
    return fields;
}

void requireFields(const httpURL& url, const Fields& fields) {
    require(url.host() == fields.mHost);
    require(url.port() == fields.mPort);
    require(url.path() == fields.mPath);
}

void requireRequest(const std::string& request, const Fields& fields) {
    if (fields.mHost.empty()) {
        require(request.empty());
        return;
    }
    const std::string port = fields.mPort == 80 ? "" : ":" + std::to_string(fields.mPort);
    require(request == "GET " + fields.mPath + " HTTP/1.0\r\nHost: " + fields.mHost + port +
                           "\r\nUser-Agent: KestrovaMediaClient/1.0\r\n"
                           "Connection: close\r\n\r\n");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length) {
    const std::string all(reinterpret_cast<const char*>(data), length);
    const std::string text = all.c_str();
    httpURL url;
    require(url.parse("http://before:1/x"));

    const bool hasScheme = lower(text.substr(0, 7)) == "http://";
    const std::optional<Fields> fields = hasScheme ? fieldsOf(text.substr(7)) : std::nullopt;
    require(url.parse(text.c_str()) == fields.has_value());
    const Fields otherwise = hasScheme ? Fields() : Fields{"before", 1, "/x"};
    requireFields(url, fields.value_or(otherwise));
    requireRequest(url.createRequest(), fields.value_or(otherwise));
    return 0;
}
