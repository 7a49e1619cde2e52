// SPDX-License-Identifier: MIT
#include "app/ui/progressline.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cstdio>

namespace app {

namespace {

constexpr std::size_t kFrame = 3;  // of a bar: a blank and the brackets
constexpr std::size_t kNarrowestBar = 5;

std::string percentText(int percent) {
    constexpr std::size_t digits = 3;
    std::string number = std::to_string(percent);
    number.insert(0, digits - number.size(), ' ');
    return number + " %";
}

/// Returns name, bar, per cent and the first details.
std::string assembled(const ProgressLine& line, const std::string& bar, std::size_t details) {
    std::string text = line.mName;
    if (line.mPercent != ProgressLine::kNoPercent) {
        text += bar + " " + percentText(std::clamp(line.mPercent, 0, 100));
    }
    for (std::size_t i = 0; i < details; ++i) {
        text += (i == 0 ? " " : ", ") + line.mDetails[i];
    }
    return text;
}

std::string barText(int percent, std::size_t width, Paint paint) {
    const auto filled = static_cast<std::size_t>(std::clamp(percent, 0, 100)) * width / 100;
    return " [" + paint(std::string(filled, '#'), eGreen) + std::string(width - filled, '-') + "]";
}

/// Returns the width if it fits into the room, otherwise a half or a quarter of it, so that the bar
/// does not change its size with every change of the text; 0 if there is no room.
std::size_t barWidth(std::size_t width, std::size_t room) {
    while (width + kFrame > room) {
        width /= 2;
        if (width < kNarrowestBar) {
            return 0;
        }
    }
    return width;
}

}  // namespace

std::string fitted(const ProgressLine& line, int columns, Paint paint) {
    // Some terminals start a new line after a character in the last column.
    const auto room = static_cast<std::size_t>(std::max(columns - 1, 0));
    for (std::size_t details = line.mDetails.size(); details > 0; --details) {
        const std::string text = assembled(line, "", details);
        if (text.size() > room) {
            continue;
        }
        const bool whole = details == line.mDetails.size();
        const std::size_t width = whole ? barWidth(line.mBarWidth, room - text.size()) : 0;
        return width == 0 ? text : assembled(line, barText(line.mPercent, width, paint), details);
    }
    return assembled(line, "", 0).substr(0, room);
}

std::string overdrawn(const std::string& line) {
    return "\r" + line + "\033[K";  // clears the rest of a longer line
}

int terminalColumns(int descriptor) {
    constexpr int usual = 80;
    winsize size = {};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usual;
}

std::chrono::seconds Stopwatch::elapsed() const {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() -
                                                            mStart);
}

std::string durationText(std::chrono::seconds duration) {
    constexpr long long minute = 60;
    constexpr long long hour = 60 * minute;
    const long long seconds = duration.count();
    char text[32];
    (void)std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld", seconds / hour,
                        seconds % hour / minute, seconds % minute);
    return text;
}

}  // namespace app
