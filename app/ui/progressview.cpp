// SPDX-License-Identifier: MIT
#include "app/ui/progressview.h"

#include <utility>

namespace app {

ProgressView::ProgressView(StandardStreams& streams, std::string name, bool quiet, bool talking)
    : mStreams(streams),
      mName(std::move(name)),
      mQuiet(quiet),
      mRedraws(!talking && streams.canRedraw()) {}

void ProgressView::show(const Progress& progress) {
    const bool changed = !mShown || !(progress == mLast);
    mShown = true;
    mLast = progress;
    if (changed) {
        Json change;
        change.add("status", progress.mState).add("progress", progress.mPercent);
        mChanges.append(change);
    }
    if (mQuiet) {
        return;
    }
    if (mRedraws && (changed || mStopwatch.elapsed() != mLastTime)) {
        redraw();
    } else if (!mRedraws && changed) {
        mStreams.write(mName + ": " + progress.mState + " " + std::to_string(progress.mPercent) +
                       " %\n");
    }
}

void ProgressView::redraw() {
    constexpr std::size_t width = 40;
    mLastTime = mStopwatch.elapsed();
    const ProgressLine line = {
        mName, mLast.mPercent, width, {mLast.mState, durationText(mLastTime)}};
    mStreams.write(overdrawn(fitted(line, terminalColumns(mStreams.output()), coloured)));
    mOpenLine = true;
}

void ProgressView::end() {
    if (std::exchange(mOpenLine, false)) {
        mStreams.write("\n");
    }
}

}  // namespace app
