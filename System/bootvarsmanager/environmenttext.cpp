// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/environmenttext.h"

#include <utility>

namespace {

constexpr std::string_view kNul("\0", 1);

/// Why a name is none that a text can have.
std::string nameProblem(std::string_view name) {
    if (name.empty()) {
        return "the name is empty";
    }
    if (name.find('=') != std::string_view::npos) {
        return "the name holds '='";
    }
    return name.find('\n') != std::string_view::npos ? "the name holds a line end" : "";
}

std::string countProblem(const KestrovaVector<std::string>& names,
                         const KestrovaVector<std::string>& values) {
    return "there are " + std::to_string(names.size()) + " names and " +
           std::to_string(values.size()) + " values";
}

/// Reads a text line by line and counts the lines.
class TextReader {
public:
    explicit TextReader(std::string_view text) : mRest(text) {}

    bool atEnd() const { return mRest.empty(); }
    unsigned line() const { return mLine; }

    /// Takes the next line without its end.
    std::string_view take() {
        const std::size_t end = mRest.find('\n');
        const std::string_view line = mRest.substr(0, end);
        mRest.remove_prefix(end == std::string_view::npos ? mRest.size() : end + 1);
        ++mLine;
        return line;
    }

private:
    std::string_view mRest;
    unsigned mLine = 0;
};

/// Takes a setting from its first line on. A backslash at the end of a line stands for a line end
/// in the value. Returns false when nothing follows it.
bool takeSetting(TextReader& reader, std::string_view line, std::string& setting) {
    setting = line;
    while (!setting.empty() && setting.back() == '\\') {
        if (reader.atEnd()) {
            return false;
        }
        setting.back() = '\n';
        setting += reader.take();
    }
    return true;
}

std::string splitSetting(const std::string& setting, std::string& name, std::string& value) {
    const std::size_t sign = setting.find('=');
    if (sign == std::string::npos) {
        return "there is no '=' between name and value";
    }
    name = setting.substr(0, sign);
    value = setting.substr(sign + 1);
    const std::string problem = nameProblem(name);
    return !problem.empty() ? problem : settingProblem(name, value);
}

}  // namespace

std::string settingProblem(std::string_view name, std::string_view value) {
    if (name.find(kNul) != std::string_view::npos) {
        return "the name holds a NUL byte";
    }
    if (value.find(kNul) != std::string_view::npos) {
        return "the value holds a NUL byte";
    }
    return value.empty() ? "" : nameProblem(name);
}

std::string settingsProblem(const KestrovaVector<std::string>& names,
                            const KestrovaVector<std::string>& values) {
    if (names.size() != values.size()) {
        return countProblem(names, values);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string problem = settingProblem(names[i], values[i]);
        if (!problem.empty()) {
            return "variable \"" + names[i] + "\": " + problem;
        }
    }
    return "";
}

bool parseSettings(std::string_view text, KestrovaVector<std::string>& names,
                   KestrovaVector<std::string>& values, std::string& problem) {
    KestrovaVector<std::string> foundNames = names;
    KestrovaVector<std::string> foundValues = values;
    for (TextReader reader(text); !reader.atEnd();) {
        const std::string_view first = reader.take();
        if (first.empty() || first.front() == '#') {
            continue;
        }
        const std::string place = "line " + std::to_string(reader.line()) + ": ";
        std::string setting;
        std::string name;
        std::string value;
        if (!takeSetting(reader, first, setting)) {
            problem = place + "nothing follows the backslash at the end of the text";
            return false;
        }
        const std::string reason = splitSetting(setting, name, value);
        if (!reason.empty()) {
            problem = place + reason;
            return false;
        }
        foundNames.push_back(std::move(name));
        foundValues.push_back(std::move(value));
    }
    names.swap(foundNames);
    values.swap(foundValues);
    return true;
}

bool appendSetting(std::string_view name, std::string_view value, std::string& text,
                   std::string& problem) {
    problem = nameProblem(name);
    if (problem.empty() && name.front() == '#') {
        problem = "the name starts with '#', as a comment does";
    }
    if (problem.empty() && !value.empty() && value.back() == '\\') {
        problem = "the value ends with a backslash, which would continue the line";
    }
    if (!problem.empty()) {
        return false;
    }
    std::string line(name);
    line += '=';
    for (const char byte : value) {
        line += byte == '\n' ? "\\\n" : std::string(1, byte);
    }
    text += line + '\n';
    return true;
}

bool formatSettings(const KestrovaVector<std::string>& names,
                    const KestrovaVector<std::string>& values, std::string& text,
                    std::string& problem) {
    if (names.size() != values.size()) {
        problem = countProblem(names, values);
        return false;
    }
    std::string lines;
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::string reason;
        if (!appendSetting(names[i], values[i], lines, reason)) {
            problem = "variable \"" + names[i] + "\": " + reason;
            return false;
        }
    }
    text.swap(lines);
    return true;
}
