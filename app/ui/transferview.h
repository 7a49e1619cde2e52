// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_TRANSFERVIEW_H
#define KESTROVA_APP_UI_TRANSFERVIEW_H

#include <chrono>
#include <deque>
#include <string>

#include "app/ui/progressline.h"

namespace app {

/// Bytes per second, over the last few seconds.
class Rate {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Adds the total number of bytes at a time.
    void add(Time time, unsigned long long bytes);
    /// Returns 0 until there are enough samples.
    unsigned long long perSecond() const;

private:
    struct Sample {
        Time mTime;
        unsigned long long mBytes;
    };
    std::deque<Sample> mSamples;
};

/// Shows the progress of a transfer on standard error, in one line that is redrawn, because
/// standard output may receive the bytes.
class TransferView {
public:
    TransferView(std::string name, bool shown);

    /// A `length` of 0 means that it is unknown.
    void show(unsigned long long received, unsigned long long length);
    /// Ends the progress line.
    void end();

private:
    std::string text(unsigned long long received, unsigned long long length) const;

    std::string mName;
    const Stopwatch mStopwatch;
    bool mShown;
    bool mOpenLine = false;
    std::string mLast;
    Rate mRate;
};

}  // namespace app

#endif
