// SPDX-License-Identifier: MIT
//
// Lines of input, and the words of a line.
#ifndef KESTROVA_APP_CLI_LINE_H
#define KESTROVA_APP_CLI_LINE_H

#include <string>
#include <string_view>
#include <vector>

#include "app/ui/interrupts.h"

namespace app {

/// Reads lines from a descriptor, which it does not own.
class LineReader {
public:
    enum Outcome {
        eLine,
        eEnd,          ///< end of input, or it cannot be read
        eInterrupted,  ///< Ctrl-C; what was typed of the line is gone
        eTooLong,      ///< the line is longer than kLongest bytes; it has been skipped
    };
    static constexpr std::size_t kLongest = 4096;

    explicit LineReader(int descriptor) : mDescriptor(descriptor) {}

    /// The next line without its end. Blocks until it is there.
    Outcome read(const Interrupts& interrupts, std::string& line);

private:
    bool takeLine(std::string& line, Outcome& outcome);
    Outcome takeRest(std::string& line);

    int mDescriptor;
    std::string mBuffer;
    bool mSkipping = false;  // within a line that is too long
};

using Words = std::vector<std::string>;

/// Splits a text into commands, which end at ';' or a line end, and those into words, between
/// blanks. Quotes of both kinds keep blanks and ';' together, a backslash outside of single quotes
/// keeps the next character, '#' in front of a word makes the rest of the line a comment. Commands
/// without words are left out. False with a message when a quote is not closed.
bool splitCommands(std::string_view text, std::vector<Words>& commands, std::string& error);

}  // namespace app

#endif
