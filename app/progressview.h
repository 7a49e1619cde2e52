// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_PROGRESSVIEW_H
#define KESTROVA_APP_PROGRESSVIEW_H

#include <string>
#include <string_view>

#include "app/colour.h"
#include "app/json.h"
#include "app/standardstreams.h"
#include "app/work.h"

namespace app {

/// coloured() or colouredError().
using Paint = std::string (*)(std::string_view text, Colour colour);

/// "name [####----]  50 % state", the bar so wide.
std::string barText(const std::string& name, int percent, int width, const std::string& state,
                    Paint paint);
/// A line that takes the place of the one that the cursor is in.
std::string overdrawn(const std::string& line);

/// Shows how far a piece of work is: a bar on a terminal, elsewhere a line for every change, and
/// for JSON nothing until the end.
class ProgressView {
public:
    /// `talking`: the library writes its own lines, between which a bar would be torn.
    ProgressView(StandardStreams& streams, std::string name, bool quiet, bool talking);

    void show(const Progress& progress);
    /// Leaves the bar as a whole line. More may be shown afterwards.
    void end();

    /// Everything shown, each change once.
    const JsonArray& changes() const { return mChanges; }

private:
    StandardStreams& mStreams;
    std::string mName;
    bool mQuiet;
    bool mRedraws;
    bool mShown = false;
    bool mOpenLine = false;
    Progress mLast;
    JsonArray mChanges;
};

}  // namespace app

#endif
