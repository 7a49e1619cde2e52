// SPDX-License-Identifier: MIT
#include "app/transferview.h"

#include <cstdio>
#include <utility>

#include "app/progressview.h"
#include "app/standardstreams.h"
#include "app/text.h"

namespace app {

namespace {

constexpr std::chrono::seconds kSpan(5);
// The whole line fits 80 columns.
constexpr int kBarWidth = 20;

std::string durationText(unsigned long long seconds) {
    constexpr unsigned long long minute = 60;
    constexpr unsigned long long hour = 60 * minute;
    char text[32];
    (void)std::snprintf(text, sizeof(text), "%llu:%02llu:%02llu", seconds / hour,
                        seconds % hour / minute, seconds % minute);
    return text;
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
    std::string amount = amountText(received);
    if (length != 0) {
        amount += " of " + amountText(length);
    }
    amount += ", " + amountText(rate) + "/s";
    if (length == 0) {
        return overdrawn(mName + " " + amount);
    }
    if (received < length) {
        amount += rate != 0 ? ", " + durationText((length - received + rate - 1) / rate) + " left"
                            : std::string(", stalled");
    }
    return overdrawn(barText(mName, static_cast<int>(received * 100 / length), kBarWidth, amount,
                             colouredError));
}

}  // namespace app
