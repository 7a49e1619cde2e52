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

/// A JSON value: null until something is added. Only json.cpp includes the library behind it, which
/// takes long to compile.
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
    /// The same; a null pointer is a JSON null.
    Json(const char* text);
    template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
    Json(Number value)
        : Json(static_cast<
               std::conditional_t<std::is_signed_v<Number>, long long, unsigned long long>>(
              value)) {}
    /// An array, which can stay empty.
    static Json array();

    Json(const Json& other);
    Json(Json&& other) noexcept;
    Json& operator=(Json other) noexcept;
    ~Json();

    /// Adds a member to an object. Members keep their order.
    Json& add(const char* name, const Json& value);
    /// Adds all members of another object; a null has none.
    Json& add(const Json& other);
    /// Adds an element to an array.
    Json& append(const Json& value);

    /// The value on one line. An object without members is "{}", also while it is still null.
    std::string text() const;

private:
    struct Value;

    std::unique_ptr<Value> mValue;
};

}  // namespace app

#endif
