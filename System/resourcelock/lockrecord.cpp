// SPDX-License-Identifier: MIT
#include "System/resourcelock/lockrecord.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>

#include "base/text/crc32.h"

namespace resourcelock {

namespace {

constexpr char kFirstLine[] = "kestrova-lock 1\n";
constexpr int kWholePercent = 100;

bool isControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7f;
}

bool isField(std::string_view text, std::size_t longest) {
    return text.size() <= longest && std::none_of(text.begin(), text.end(), isControl);
}

/// Removes lines such as "pid 812" from the start of a text.
class Lines {
public:
    explicit Lines(std::string_view text) : mRest(text) {}

    bool takeText(std::string_view name, std::string_view& value) {
        const std::size_t end = mRest.find('\n');
        if (end == std::string_view::npos || mRest.substr(0, name.size()) != name ||
            end <= name.size() || mRest[name.size()] != ' ') {
            return false;
        }
        value = mRest.substr(name.size() + 1, end - name.size() - 1);
        mRest.remove_prefix(end + 1);
        return true;
    }

    bool takeNumber(std::string_view name, long long least, long long most, long long& number) {
        std::string_view text;
        if (!takeText(name, text)) {
            return false;
        }
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        return error == std::errc() && end == text.data() + text.size() && number >= least &&
               number <= most;
    }

private:
    std::string_view mRest;
};

}  // namespace

std::string fieldText(std::string_view text, std::size_t longest) {
    std::size_t length = std::min(text.size(), longest);
    const auto continues = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
    };
    while (length > 0 && length < text.size() && continues(text[length])) {
        --length;
    }
    std::string field(text.substr(0, length));
    std::replace_if(field.begin(), field.end(), isControl, '?');
    return field;
}

std::string formatRecord(const Record& record) {
    char text[kRecordSize];
    const int length = std::snprintf(
        text, sizeof(text), "%spid %d\nsince %lld\nmode %s\ncommand %s\nstate %s\npercent %d\n",
        kFirstLine, record.mPid, record.mSince, record.mShared ? "shared" : "exclusive",
        record.mCommand.c_str(), record.mState.c_str(), record.mPercent);
    const auto check = kestrova_crc32(reinterpret_cast<const unsigned char*>(text), length);
    (void)std::snprintf(text + length, sizeof(text) - static_cast<std::size_t>(length),
                        "check %08x\n", static_cast<unsigned>(check));
    std::string whole = text;
    whole.resize(kRecordSize, '\n');
    return whole;
}

bool parseRecord(std::string_view bytes, Record& record) {
    const std::size_t first = sizeof(kFirstLine) - 1;
    if (bytes.size() != kRecordSize || bytes.substr(0, first) != kFirstLine) {
        return false;
    }
    Lines lines(bytes.substr(first));
    std::string_view mode;
    std::string_view command;
    std::string_view state;
    long long pid = 0;
    long long percent = 0;
    Record found;
    if (!lines.takeNumber("pid", 1, INT_MAX, pid) ||
        !lines.takeNumber("since", 0, LLONG_MAX, found.mSince) || !lines.takeText("mode", mode) ||
        !lines.takeText("command", command) || !lines.takeText("state", state) ||
        !lines.takeNumber("percent", 0, kWholePercent, percent) ||
        !isField(command, kLongestCommand) || !isField(state, kLongestState)) {
        return false;
    }
    found.mPid = static_cast<int>(pid);
    found.mPercent = static_cast<int>(percent);
    found.mShared = mode == "shared";
    found.mCommand = command;
    found.mState = state;
    // A record has exactly one spelling, so this comparison checks the mode, the checksum and the
    // padding.
    if (formatRecord(found) != bytes) {
        return false;
    }
    record = found;
    return true;
}

}  // namespace resourcelock
