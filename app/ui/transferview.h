// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_TRANSFERVIEW_H
#define KESTROVA_APP_UI_TRANSFERVIEW_H

#include <chrono>
#include <deque>
#include <string>

#include "app/ui/progressline.h"

namespace app {

/// Bytes a second, of the last seconds.
class Rate {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// So many bytes in all, at this time.
    void add(Time time, unsigned long long bytes);
    /// 0 as long as there is nothing to tell from.
    unsigned long long perSecond() const;

private:
    struct Sample {
        Time mTime;
        unsigned long long mBytes;
    };
    std::deque<Sample> mSamples;
};

/// Shows on standard error how far a transfer is, in one line that is redrawn. The standard output
/// may be where the bytes go.
class TransferView {
public:
    TransferView(std::string name, bool shown);

    /// A length of 0 is not known.
    void show(unsigned long long received, unsigned long long length);
    /// Leaves the line as a whole one.
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
