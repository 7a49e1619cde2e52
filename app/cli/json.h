// SPDX-License-Identifier: MIT
//
// The JSON documents that the command prints.
#ifndef KESTROVA_APP_CLI_JSON_H
#define KESTROVA_APP_CLI_JSON_H

#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>

namespace app {

/// A JSON value, initially null. Only json.cpp includes the JSON library, because it takes long to
/// compile.
class Json {
public:
    Json();
    Json(std::nullptr_t /*null*/);
    Json(bool value);
    Json(long long value);
    Json(unsigned long long value);
    /// A byte that is not UTF-8 becomes the character with the byte's number, so that the document
    /// is well-formed and still shows the byte.
    Json(const std::string& text);
    /// Like the string constructor; a null pointer is a JSON null.
    Json(const char* text);
    template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
    Json(Number value)
        : Json(static_cast<
               std::conditional_t<std::is_signed_v<Number>, long long, unsigned long long>>(
              value)) {}
    /// Returns an empty array.
    static Json array();

    Json(const Json& other);
    Json(Json&& other) noexcept;
    Json& operator=(Json other) noexcept;
    ~Json();

    /// Adds a member to an object. Members keep their order.
    Json& add(const char* name, const Json& value);
    /// Adds all members of another object, or none of a null.
    Json& add(const Json& other);
    /// Adds an element to an array.
    Json& append(const Json& value);

    /// Returns the value on one line. An object without members, including a null one, is "{}".
    std::string text() const;

private:
    struct Value;

    std::unique_ptr<Value> mValue;
};

}  // namespace app

#endif
