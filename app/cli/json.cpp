// SPDX-License-Identifier: MIT
#include "app/cli/json.h"

#include <cstdio>

#include "app/ui/humantext.h"

namespace app {

namespace {

void appendMember(std::string& body, std::string_view member) {
    if (!body.empty()) {
        body += ",";
    }
    body += member;
}

void appendEscaped(std::string& result, unsigned char byte) {
    char escape[8];
    (void)std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(byte));
    result += escape;
}

}  // namespace

std::string jsonString(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        const auto first = static_cast<unsigned char>(text.front());
        std::size_t length = characterLength(text);
        if (length == 0 || first < 0x20 || first == 0x7f) {
            appendEscaped(result, first);
            length = 1;
        } else {
            if (first == '"' || first == '\\') {
                result += '\\';
            }
            result += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return result + "\"";
}

void JsonArray::addJson(std::string_view json) {
    appendMember(mBody, json);
}

JsonObject& JsonObject::add(const JsonObject& other) {
    if (!other.mBody.empty()) {
        appendMember(mBody, other.mBody);
    }
    return *this;
}

JsonObject& JsonObject::addJson(std::string_view key, std::string_view json) {
    appendMember(mBody, jsonString(key));
    mBody += ":";
    mBody += json;
    return *this;
}

}  // namespace app
