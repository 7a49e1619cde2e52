// SPDX-License-Identifier: MIT
//
// A progress line that is redrawn in place.
#ifndef KESTROVA_APP_UI_PROGRESSLINE_H
#define KESTROVA_APP_UI_PROGRESSLINE_H

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "app/ui/colour.h"

namespace app {

/// coloured() or colouredError().
using Paint = std::string (*)(std::string_view text, Colour colour);

/// The contents of a progress line.
struct ProgressLine {
    static constexpr int kNoPercent = -1;

    std::string mName;
    int mPercent = kNoPercent;
    std::size_t mBarWidth = 0;          ///< characters, if there is room for them
    std::vector<std::string> mDetails;  ///< in order of importance
};

/// Returns "name [####----]  50 % detail, detail", shorter than the terminal's width, so that it
/// can be redrawn. If the room is insufficient, shortens or drops the bar, then drops the last
/// details, then truncates the line.
std::string fitted(const ProgressLine& line, int columns, Paint paint);
/// Returns the output that replaces the terminal's current line with this one.
std::string overdrawn(const std::string& line);

/// Returns the columns of the terminal on a descriptor; 80 if they are unknown.
int terminalColumns(int descriptor);

/// Measures the time since its construction, on a clock that cannot be set.
class Stopwatch {
public:
    std::chrono::seconds elapsed() const;

private:
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

/// Returns a duration as "0:01:05".
std::string durationText(std::chrono::seconds duration);

}  // namespace app

#endif
