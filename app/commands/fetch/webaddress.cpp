// SPDX-License-Identifier: MIT
#include "app/commands/fetch/webaddress.h"

#include <algorithm>

#include "System/protocols/http/httpurl.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

// Leaves room for a number within the 255 bytes of a file name.
constexpr std::size_t kLongestName = 240;

bool breaksRequest(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte <= ' ' || byte == 0x7f;
}

std::string lastPart(const std::string& url) {
    httpURL address;
    (void)address.parse(url.c_str());
    const std::string path = address.path().substr(0, address.path().find_first_of("?#"));
    return path.substr(path.rfind('/') + 1);
}

std::string safeName(const std::string& url) {
    std::string name = lastPart(url);
    if (name.empty()) {
        return "index";
    }
    if (name[0] == '.' || name[0] == '-') {
        name[0] = '_';
    }
    for (std::size_t position = 0; position < name.size();) {
        std::size_t length = characterLength(std::string_view(name).substr(position));
        if (length == 0) {
            name[position] = '_';
            length = 1;
        }
        if (position + length > kLongestName) {
            name.resize(position);
        }
        position += length;
    }
    return name;
}

}  // namespace

bool isUrl(const std::string& text) {
    httpURL address;
    return std::none_of(text.begin(), text.end(), breaksRequest) && address.parse(text.c_str()) &&
           !address.host().empty();
}

Result checkUrls(const Words& arguments) {
    const auto bad = std::find_if_not(arguments.begin(), arguments.end(), isUrl);
    return bad == arguments.end()
               ? Result()
               : Result::misused("no URL of the form http://HOST[:PORT]/PATH: " + quoted(*bad));
}

std::string FileNames::add(const std::string& url) {
    const std::string name = safeName(url);
    std::string unique = name;
    for (unsigned number = 2; !mTaken.insert(unique).second; ++number) {
        unique = name + "." + std::to_string(number);
    }
    return unique;
}

}  // namespace app
