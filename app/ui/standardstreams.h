// SPDX-License-Identifier: MIT
//
// The command's own input and output, separate from those of the library and its tools.
#ifndef KESTROVA_APP_UI_STANDARDSTREAMS_H
#define KESTROVA_APP_UI_STANDARDSTREAMS_H

#include <string_view>

namespace app {

/// Owns the descriptors that the process received as standard input and output.
///
/// The library logs to descriptor 1, and the tools that it starts inherit 0 and 1. A tool's
/// messages would corrupt a JSON document, and a tool could read the shell's next commands.
/// Therefore both move to separate descriptors, which no tool inherits; descriptor 1 becomes a copy
/// of standard error, and descriptor 0 becomes /dev/null. A stream that the caller has closed is
/// treated as /dev/null, so that no file opened later gets its number.
class StandardStreams {
public:
    /// Create the object first, before any file is opened.
    StandardStreams();
    ~StandardStreams();
    StandardStreams(const StandardStreams&) = delete;
    StandardStreams& operator=(const StandardStreams&) = delete;

    int input() const { return mInput; }
    int output() const { return mOutput; }
    /// Returns whether a person can answer a question: the input is a terminal, and so is standard
    /// error, to which questions are written.
    bool canAsk() const;
    /// Returns whether the output is a terminal that can redraw a line.
    bool canRedraw() const;
    /// Returns whether standard error is a terminal that can redraw a line.
    bool canRedrawError() const;

    /// Writes to the output. outputError() returns a failure.
    void write(std::string_view text);
    /// Returns the errno of the first failed write, or 0.
    int outputError() const { return mOutputError; }

private:
    int mInput;
    int mOutput;
    int mOutputError = 0;
};

/// Writes a question or a prompt to standard error, unchanged.
void writeError(std::string_view text);
/// Writes a line "kestrova: ..." to standard error, as a notice.
void complain(std::string_view message);
/// Writes such a line for a failure, in red unless `plain` is set.
void printError(std::string_view message, bool plain);

}  // namespace app

#endif
