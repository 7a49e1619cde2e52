// SPDX-License-Identifier: MIT
#include "app/cli/json.h"

#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "app/ui/humantext.h"

namespace app {

struct Json::Value {
    explicit Value(nlohmann::ordered_json tree) : mTree(std::move(tree)) {}
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;
    ~Value() = default;

    nlohmann::ordered_json mTree;
};

namespace {

std::string wellFormed(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        std::size_t length = characterLength(text);
        if (length == 0) {
            const auto byte = static_cast<unsigned char>(text.front());
            result += static_cast<char>(0xc0U | byte >> 6U);
            result += static_cast<char>(0x80U | (byte & 0x3fU));
            length = 1;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return result;
}

}  // namespace

Json::Json() : mValue(std::make_unique<Value>(nullptr)) {}
Json::Json(std::nullptr_t) : Json() {}
Json::Json(bool value) : mValue(std::make_unique<Value>(value)) {}
Json::Json(long long value) : mValue(std::make_unique<Value>(value)) {}
Json::Json(unsigned long long value) : mValue(std::make_unique<Value>(value)) {}
Json::Json(const std::string& text) : mValue(std::make_unique<Value>(wellFormed(text))) {}
Json::Json(const char* text) : Json() {
    if (text != nullptr) {
        mValue->mTree = wellFormed(text);
    }
}
Json::Json(const Json& other) : mValue(std::make_unique<Value>(other.mValue->mTree)) {}
Json::Json(Json&& other) noexcept = default;
Json::~Json() = default;

Json& Json::operator=(Json other) noexcept {
    mValue.swap(other.mValue);
    return *this;
}

Json Json::array() {
    Json result;
    result.mValue->mTree = nlohmann::ordered_json::array();
    return result;
}

Json& Json::add(const char* name, const Json& value) {
    mValue->mTree[name] = value.mValue->mTree;
    return *this;
}

Json& Json::add(const Json& other) {
    if (!other.mValue->mTree.is_null()) {
        mValue->mTree.update(other.mValue->mTree);
    }
    return *this;
}

Json& Json::append(const Json& value) {
    mValue->mTree.push_back(value.mValue->mTree);
    return *this;
}

std::string Json::text() const {
    return mValue->mTree.is_null() ? "{}" : mValue->mTree.dump();
}

}  // namespace app
