// SPDX-License-Identifier: MIT
//
// Any bytes as a text of settings, held against a second reading of the format; what is read is
// written and read again.
#include "System/bootvarsmanager/environmenttext.h"

#include <cstdint>
#include <cstdlib>
#include <optional>

namespace {

using Texts = KestrovaVector<std::string>;

struct Settings {
    Texts mNames;
    Texts mValues;
};

void require(bool held) {
    if (!held) {
        std::abort();
    }
}

/// The second implementation, byte by byte. Returns nothing for a malformed text.
std::optional<Settings> settingsOf(const std::string& text) {
    Settings found;
    std::size_t at = 0;
    while (at < text.size()) {
        if (text[at] == '\n') {
            ++at;
            continue;
        }
        if (text[at] == '#') {
            while (at < text.size() && text[at] != '\n') {
                ++at;
            }
            continue;
        }
        std::string name;
        std::string value;
        bool inValue = false;
        for (; at < text.size() && text[at] != '\n'; ++at) {
            char byte = text[at];
            const bool endsLine = at + 1 == text.size() || text[at + 1] == '\n';
            if (byte == '\0' || (!inValue && byte == '\\' && endsLine)) {
                return std::nullopt;
            }
            if (byte == '\\' && endsLine) {
                if (at + 2 >= text.size()) {
                    return std::nullopt;
                }
                byte = '\n';
                ++at;
            }
            if (!inValue && byte == '=') {
                inValue = true;
            } else {
                (inValue ? value : name) += byte;
            }
        }
        if (!inValue || name.empty()) {
            return std::nullopt;
        }
        found.mNames.push_back(name);
        found.mValues.push_back(value);
    }
    return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length) {
    const std::string text(reinterpret_cast<const char*>(data), length);
    const std::optional<Settings> expected = settingsOf(text);
    Settings read;
    std::string problem;
    require(parseSettings(text, read.mNames, read.mValues, problem) == expected.has_value());
    if (!expected) {
        require(problem.rfind("line ", 0) == 0 && read.mNames.empty() && read.mValues.empty());
        return 0;
    }
    require(read.mNames == expected->mNames && read.mValues == expected->mValues);
    std::string written;
    Settings kept;
    for (std::size_t i = 0; i < read.mNames.size(); ++i) {
        require(settingProblem(read.mNames[i], read.mValues[i]).empty());
        if (appendSetting(read.mNames[i], read.mValues[i], written, problem)) {
            kept.mNames.push_back(read.mNames[i]);
            kept.mValues.push_back(read.mValues[i]);
        }
    }
    Settings again;
    require(parseSettings(written, again.mNames, again.mValues, problem));
    require(again.mNames == kept.mNames && again.mValues == kept.mValues);
    return 0;
}
