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

/// Shows the progress of work: on a terminal a bar with the elapsed time, elsewhere a line for
/// every change, and for JSON nothing until the end.
class ProgressView {
public:
    /// `talking`: the library logs, which would break a bar.
    ProgressView(StandardStreams& streams, std::string name, bool quiet, bool talking);

    void show(const Progress& progress);
    /// Ends the bar's line. More progress may be shown afterwards.
    void end();

    /// Returns everything that was shown, each change once.
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
    std::chrono::seconds mLastTime{-1};  // time shown in the bar
    Json mChanges = Json::array();
};

}  // namespace app

#endif
