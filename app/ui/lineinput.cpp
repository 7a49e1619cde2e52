// SPDX-License-Identifier: MIT
#include "app/ui/lineinput.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace app {

LineInput::Outcome LineInput::read(const Interrupts& interrupts, std::string& line) {
    Outcome outcome = eEnd;
    while (!takeLine(line, outcome)) {
        pollfd sources[] = {{mDescriptor, POLLIN, 0}, {interrupts.descriptor(), POLLIN, 0}};
        if (::poll(sources, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return eEnd;
        }
        if ((sources[1].revents & POLLIN) != 0 && interrupts.take()) {
            mBuffer.clear();
            return eInterrupted;
        }
        if (sources[0].revents == 0) {
            continue;
        }
        char piece[512];
        const ssize_t length = ::read(mDescriptor, piece, sizeof(piece));
        if (length > 0) {
            mBuffer.append(piece, static_cast<std::size_t>(length));
        } else if (length == 0 || (errno != EINTR && errno != EAGAIN)) {
            return takeRest(line);
        }
    }
    return outcome;
}

bool LineInput::takeLine(std::string& line, Outcome& outcome) {
    const std::size_t end = mBuffer.find('\n');
    if (end == std::string::npos) {
        if (mBuffer.size() > kLongest) {
            mBuffer.clear();
            mSkipping = true;
        }
        return false;
    }
    const bool tooLong = std::exchange(mSkipping, false) || end > kLongest;
    line = mBuffer.substr(0, end);
    mBuffer.erase(0, end + 1);
    outcome = tooLong ? eTooLong : eLine;
    return true;
}

/// Returns the last line, which may not end with a newline.
LineInput::Outcome LineInput::takeRest(std::string& line) {
    if (std::exchange(mSkipping, false)) {
        mBuffer.clear();
        return eTooLong;
    }
    line = std::exchange(mBuffer, {});
    return line.empty() ? eEnd : eLine;
}

}  // namespace app
