// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_WORK_H
#define KESTROVA_APP_WORK_H

#include <string>

#include "app/cli/result.h"

namespace app {

/// How far something is.
struct Progress {
    std::string mState;
    int mPercent = 0;

    bool operator==(const Progress& other) const {
        return mState == other.mState && mPercent == other.mPercent;
    }
};

/// Something long that runs on a thread of its own or of the library. Its destructor waits until it
/// has ended, wherever that is needed.
class Work {
public:
    Work() = default;
    virtual ~Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    /// "format", "start" or "check".
    virtual const char* name() const = 0;
    /// True when it has ended, so that the drive is free again. Answers at once.
    virtual bool ended() = 0;
    /// Answers at once.
    virtual Progress progress() = 0;
    /// What came of it. To be called once, after it has ended.
    virtual Result finish() = 0;
};

}  // namespace app

#endif
