// SPDX-License-Identifier: MIT
//
// The little of JSON that the command writes: objects and arrays, on one line.
#ifndef KESTROVA_APP_CLI_JSON_H
#define KESTROVA_APP_CLI_JSON_H

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace app {

/// A text as a JSON string. Control characters are escaped; a byte that is no UTF-8 becomes the
/// character of the same number (\u00NN), which keeps the document well-formed and shows the byte.
std::string jsonString(std::string_view text);

/// An array under construction.
class JsonArray {
public:
    /// Appends a value that is JSON text already.
    void addJson(std::string_view json);
    std::string text() const { return "[" + mBody + "]"; }

private:
    std::string mBody;
};

/// An object under construction; keys appear in the order in which they are added.
class JsonObject {
public:
    JsonObject& add(std::string_view key, std::string_view value) {
        return addJson(key, jsonString(value));
    }
    JsonObject& add(std::string_view key, std::nullptr_t /*value*/) { return addJson(key, "null"); }
    JsonObject& add(std::string_view key, const char* value) {
        return value == nullptr ? addJson(key, "null") : add(key, std::string_view(value));
    }
    template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
    JsonObject& add(std::string_view key, Number value) {
        if constexpr (std::is_same_v<Number, bool>) {
            return addJson(key, value ? "true" : "false");
        } else {
            return addJson(key, std::to_string(value));
        }
    }
    JsonObject& add(std::string_view key, const JsonArray& value) {
        return addJson(key, value.text());
    }
    JsonObject& add(std::string_view key, const JsonObject& value) {
        return addJson(key, value.text());
    }
    /// Appends what another object holds.
    JsonObject& add(const JsonObject& other);

    /// Appends a member whose value is JSON text already.
    JsonObject& addJson(std::string_view key, std::string_view json);

    std::string text() const { return "{" + mBody + "}"; }

private:
    std::string mBody;
};

}  // namespace app

#endif
