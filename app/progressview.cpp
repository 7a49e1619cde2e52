// SPDX-License-Identifier: MIT
#include "app/progressview.h"

#include <algorithm>
#include <utility>

namespace app {

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
        mStreams.write(bar(progress));
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

std::string ProgressView::bar(const Progress& progress) const {
    constexpr int width = 40;
    constexpr char clearToEnd[] = "\033[K";
    const int percent = std::clamp(progress.mPercent, 0, 100);
    const auto filled = static_cast<std::size_t>(percent * width / 100);
    std::string number = std::to_string(percent);
    number.insert(0, 3 - number.size(), ' ');
    return "\r" + mName + " [" + std::string(filled, '#') + std::string(width - filled, '-') +
           "] " + number + " % " + progress.mState + clearToEnd;
}

}  // namespace app
