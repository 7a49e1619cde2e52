// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_LINEEDITOR_H
#define KESTROVA_APP_UI_LINEEDITOR_H

#include <memory>
#include <string>

namespace app {

class Interrupts;

/// Reads lines at a terminal, with editing and a history, through libedit.
///
/// libedit is loaded when it is needed, so that the command runs without it, and starts no slower
/// because of it. Signals are those of Interrupts; the history lasts as long as the object.
class LineEditor {
public:
    enum Outcome {
        eLine,
        eEnd,          ///< Ctrl-D, or the terminal cannot be read
        eInterrupted,  ///< a signal; the incomplete line is dropped
    };

    virtual ~LineEditor() = default;

    /// Reads the next line without its end. Blocks until it is complete. Writes the prompt to
    /// standard error.
    virtual Outcome read(const char* prompt, std::string& line) = 0;

    /// Creates an editor for a terminal, whose descriptor is not owned. Returns null if this build,
    /// or this machine, has no libedit.
    static std::unique_ptr<LineEditor> create(int terminal, const Interrupts& interrupts);
};

}  // namespace app

#endif
