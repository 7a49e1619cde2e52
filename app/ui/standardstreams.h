// SPDX-License-Identifier: MIT
//
// The command's own input and output, kept apart from what the library and its tools use.
#ifndef KESTROVA_APP_UI_STANDARDSTREAMS_H
#define KESTROVA_APP_UI_STANDARDSTREAMS_H

#include <string_view>

namespace app {

/// Owns the descriptors that the process was given as standard input and output.
///
/// The library logs to descriptor 1, and the tools that it starts inherit 0 and 1: left as they
/// are, a tool's chatter would tear a JSON document apart and a tool could read the shell's next
/// commands. So both move to descriptors of their own, which no tool inherits; descriptor 1 becomes
/// another standard error, and descriptor 0 becomes empty. A stream that the caller closed is
/// treated as /dev/null, so that no file opened later takes its number.
class StandardStreams {
public:
    /// To be made first, before any file is opened.
    StandardStreams();
    ~StandardStreams();
    StandardStreams(const StandardStreams&) = delete;
    StandardStreams& operator=(const StandardStreams&) = delete;

    int input() const { return mInput; }
    int output() const { return mOutput; }
    /// True when a person can be asked: the input is a terminal, and so is standard error, where
    /// questions are written.
    bool canAsk() const;
    /// True when the output is a terminal that can rewrite a line.
    bool canRedraw() const;
    /// The same of standard error.
    bool canRedrawError() const;

    /// Writes to the output. A failure is kept for outputError().
    void write(std::string_view text);
    /// errno of the first write that failed; 0 when all went well.
    int outputError() const { return mOutputError; }

private:
    int mInput;
    int mOutput;
    int mOutputError = 0;
};

/// Writes to standard error as it is: questions and prompts.
void writeError(std::string_view text);
/// Writes a line "kestrova: ..." to standard error: something to know.
void complain(std::string_view message);
/// The same for what has failed, in red unless it is to be plain.
void printError(std::string_view message, bool plain);

}  // namespace app

#endif
