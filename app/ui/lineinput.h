// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_LINEINPUT_H
#define KESTROVA_APP_UI_LINEINPUT_H

#include <string>

#include "app/ui/interrupts.h"

namespace app {

/// Reads lines from a descriptor, which the caller still owns.
class LineInput {
public:
    enum Outcome {
        eLine,
        eEnd,          ///< end of input, or a read error
        eInterrupted,  ///< a signal; the incomplete line is dropped
        eTooLong,      ///< a line of more than kLongest bytes, which is skipped
    };
    static constexpr std::size_t kLongest = 4096;

    explicit LineInput(int descriptor) : mDescriptor(descriptor) {}

    /// Reads the next line, without its end. Blocks until it is complete.
    Outcome read(const Interrupts& interrupts, std::string& line);

private:
    bool takeLine(std::string& line, Outcome& outcome);
    Outcome takeRest(std::string& line);

    int mDescriptor;
    std::string mBuffer;
    bool mSkipping = false;  // within a line that is too long
};

}  // namespace app

#endif
