// SPDX-License-Identifier: MIT
#include "app/progressview.h"

#include <algorithm>
#include <utility>

namespace app {

std::string barText(const std::string& name, int percent, int width, const std::string& state,
                    Paint paint) {
    percent = std::clamp(percent, 0, 100);
    const auto filled = static_cast<std::size_t>(percent * width / 100);
    const auto rest = static_cast<std::size_t>(width) - filled;
    std::string number = std::to_string(percent);
    number.insert(0, 3 - number.size(), ' ');
    return name + " [" + paint(std::string(filled, '#'), eGreen) + std::string(rest, '-') + "] " +
           number + " % " + state;
}

std::string overdrawn(const std::string& line) {
    return "\r" + line + "\033[K";  // clears what is left of a longer one
}

ProgressView::ProgressView(StandardStreams& streams, std::string name, bool quiet, bool talking)
    : mStreams(streams),
      mName(std::move(name)),
      mQuiet(quiet),
      mRedraws(!talking && streams.canRedraw()) {}

void ProgressView::show(const Progress& progress) {
    if (mShown && progress == mLast) {
        return;
    }
    mShown = true;
    mLast = progress;
    JsonObject change;
    change.add("status", progress.mState).add("progress", progress.mPercent);
    mChanges.addJson(change.text());
    if (mQuiet) {
        return;
    }
    if (mRedraws) {
        constexpr int width = 40;
        mStreams.write(
            overdrawn(barText(mName, progress.mPercent, width, progress.mState, coloured)));
        mOpenLine = true;
    } else {
        mStreams.write(mName + ": " + progress.mState + " " + std::to_string(progress.mPercent) +
                       " %\n");
    }
}

void ProgressView::end() {
    if (std::exchange(mOpenLine, false)) {
        mStreams.write("\n");
    }
}

}  // namespace app
