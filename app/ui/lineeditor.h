// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_LINEEDITOR_H
#define KESTROVA_APP_UI_LINEEDITOR_H

#include <memory>
#include <string>

namespace app {

class Interrupts;

/// Reads lines at a terminal, with editing and a history, through libedit.
///
/// The library is loaded when it is needed: the command runs without it, and starts no slower for
/// it. Signals are those of Interrupts; the history lasts as long as the object.
class LineEditor {
public:
    enum Outcome {
        eLine,
        eEnd,          ///< Ctrl-D, or the terminal cannot be read
        eInterrupted,  ///< a signal; what was typed of the line is gone
    };

    virtual ~LineEditor() = default;

    /// The next line without its end. Blocks until it is there. The prompt goes to standard error.
    virtual Outcome read(const char* prompt, std::string& line) = 0;

    /// For a terminal, whose descriptor is not owned. Null where this build, or this machine, has
    /// no libedit.
    static std::unique_ptr<LineEditor> create(int terminal, const Interrupts& interrupts);
};

}  // namespace app

#endif
