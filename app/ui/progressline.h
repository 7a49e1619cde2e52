// SPDX-License-Identifier: MIT
//
// The line that shows how far something is, redrawn in place.
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

/// What a progress line shows.
struct ProgressLine {
    static constexpr int kNoPercent = -1;

    std::string mName;
    int mPercent = kNoPercent;
    std::size_t mBarWidth = 0;          ///< characters, where there is room for them
    std::vector<std::string> mDetails;  ///< the most important first
};

/// "name [####----]  50 % detail, detail", in fewer characters than the terminal has columns, so
/// that it can be redrawn: where the room is short, with a shorter bar or none, then without the
/// last details, at the end cut.
std::string fitted(const ProgressLine& line, int columns, Paint paint);
/// A line that takes the place of the one that the cursor is in.
std::string overdrawn(const std::string& line);

/// Columns of the terminal behind a descriptor; 80 when it does not say.
int terminalColumns(int descriptor);

/// Time since the object was made, on a clock that nobody sets.
class Stopwatch {
public:
    std::chrono::seconds elapsed() const;

private:
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

/// A duration as "0:01:05".
std::string durationText(std::chrono::seconds duration);

}  // namespace app

#endif
