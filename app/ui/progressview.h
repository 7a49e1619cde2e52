// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_PROGRESSVIEW_H
#define KESTROVA_APP_UI_PROGRESSVIEW_H

#include <chrono>
#include <string>

#include "app/cli/json.h"
#include "app/ui/progressline.h"
#include "app/ui/standardstreams.h"
#include "app/work.h"

namespace app {

/// Shows how far a piece of work is: on a terminal a bar with the time since its start, elsewhere a
/// line for every change, and for JSON nothing until the end.
class ProgressView {
public:
    /// `talking`: the library writes its own lines, between which a bar would be torn.
    ProgressView(StandardStreams& streams, std::string name, bool quiet, bool talking);

    void show(const Progress& progress);
    /// Leaves the bar as a whole line. More may be shown afterwards.
    void end();

    /// Everything shown, each change once.
    const Json& changes() const { return mChanges; }

private:
    void redraw();

    StandardStreams& mStreams;
    const Stopwatch mStopwatch;
    std::string mName;
    bool mQuiet;
    bool mRedraws;
    bool mShown = false;
    bool mOpenLine = false;
    Progress mLast;
    std::chrono::seconds mLastTime{-1};  // of the bar
    Json mChanges = Json::array();
};

}  // namespace app

#endif
