// SPDX-License-Identifier: MIT
#include "app/ui/transferview.h"

#include <unistd.h>

#include <utility>

#include "app/ui/humantext.h"
#include "app/ui/progressline.h"
#include "app/ui/standardstreams.h"

namespace app {

namespace {

constexpr std::chrono::seconds kSpan(5);
constexpr std::size_t kBarWidth = 20;

std::string remaining(unsigned long long bytes, unsigned long long rate) {
    if (rate == 0) {
        return "stalled";
    }
    const auto seconds = static_cast<long long>((bytes + rate - 1) / rate);
    return durationText(std::chrono::seconds(seconds)) + " left";
}

}  // namespace

void Rate::add(Time time, unsigned long long bytes) {
    mSamples.push_back({time, bytes});
    while (mSamples.size() > 2 && mSamples[1].mTime <= time - kSpan) {
        mSamples.pop_front();
    }
}

unsigned long long Rate::perSecond() const {
    if (mSamples.size() < 2) {
        return 0;
    }
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(mSamples.back().mTime -
                                                                            mSamples.front().mTime);
    const auto milliseconds = static_cast<unsigned long long>(time.count());
    const unsigned long long bytes = mSamples.back().mBytes - mSamples.front().mBytes;
    return milliseconds == 0 ? 0 : bytes * 1000 / milliseconds;
}

TransferView::TransferView(std::string name, bool shown) : mName(std::move(name)), mShown(shown) {
    mRate.add(std::chrono::steady_clock::now(), 0);
}

void TransferView::show(unsigned long long received, unsigned long long length) {
    if (!mShown) {
        return;
    }
    mRate.add(std::chrono::steady_clock::now(), received);
    std::string line = text(received, length);
    if (line != mLast) {
        writeError(line);
        mLast = std::move(line);
        mOpenLine = true;
    }
}

void TransferView::end() {
    if (std::exchange(mOpenLine, false)) {
        writeError("\n");
    }
}

std::string TransferView::text(unsigned long long received, unsigned long long length) const {
    const unsigned long long rate = mRate.perSecond();
    const std::string elapsed = durationText(mStopwatch.elapsed());
    ProgressLine line;
    line.mName = mName;
    line.mBarWidth = kBarWidth;
    const std::string total = length != 0 ? " of " + amountText(length) : "";
    line.mDetails = {amountText(received) + total, amountText(rate) + "/s"};
    if (length == 0) {
        line.mDetails.push_back(elapsed);
    } else {
        line.mPercent = static_cast<int>(received * 100 / length);
        line.mDetails.push_back(received == length ? "in " + elapsed
                                                   : remaining(length - received, rate));
    }
    return overdrawn(fitted(line, terminalColumns(STDERR_FILENO), colouredError));
}

}  // namespace app
