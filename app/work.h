// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_WORK_H
#define KESTROVA_APP_WORK_H

#include <string>

#include "app/cli/result.h"

namespace app {

/// Progress of some work.
struct Progress {
    std::string mState;
    int mPercent = 0;

    bool operator==(const Progress& other) const {
        return mState == other.mState && mPercent == other.mPercent;
    }
};

/// Long-running work on its own thread or on one of the library. Its destructor waits for the end
/// if necessary.
class Work {
public:
    Work() = default;
    virtual ~Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    /// Returns "format", "start" or "check".
    virtual const char* name() const = 0;
    /// Returns whether the work has ended, so that the drive is free again. Does not block.
    virtual bool ended() = 0;
    /// Does not block.
    virtual Progress progress() = 0;
    /// Returns the result. Call it once, after the end.
    virtual Result finish() = 0;
};

}  // namespace app

#endif
