// SPDX-License-Identifier: MIT
#include "app/ui/standardstreams.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "app/ui/colour.h"

namespace app {

namespace {

void fillClosed() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0) {
            (void)::open("/dev/null", O_RDWR | O_CLOEXEC);  // gets the lowest free number, which is
                                                            // this one
            (void)::fcntl(descriptor, F_SETFD, 0);
        }
    }
}

int moveAway(int descriptor) {
    return ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

bool waitWritable(int descriptor) {
    pollfd ready = {descriptor, POLLOUT, 0};
    return ::poll(&ready, 1, -1) >= 0 || errno == EINTR;
}

/// Returns 0, or the errno of the failure.
int writeWhole(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            if (!waitWritable(descriptor)) {
                return errno;
            }
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

bool isScreen(int descriptor) {
    const char* const terminal = std::getenv("TERM");
    return ::isatty(descriptor) != 0 && terminal != nullptr && *terminal != '\0' &&
           std::string_view(terminal) != "dumb";
}

/// Returns whether NO_COLOR is set and not empty.
bool colourUnwanted() {
    const char* const wish = std::getenv("NO_COLOR");
    return wish != nullptr && *wish != '\0';
}

}  // namespace

StandardStreams::StandardStreams() {
    fillClosed();
    mInput = moveAway(STDIN_FILENO);
    mOutput = moveAway(STDOUT_FILENO);
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing >= 0) {
        (void)::dup2(nothing, STDIN_FILENO);
        (void)::close(nothing);
    }
    (void)::dup2(STDERR_FILENO, STDOUT_FILENO);
    showColours(canRedraw() && !colourUnwanted(), canRedrawError() && !colourUnwanted());
    // A reader that exits must not kill the process in the middle of a format. Installs a handler,
    // because the tools would inherit an ignored signal.
    (void)std::signal(SIGPIPE, [](int) {});
}

StandardStreams::~StandardStreams() {
    (void)::close(mInput);
    (void)::close(mOutput);
}

bool StandardStreams::canAsk() const {
    return ::isatty(mInput) != 0 && ::isatty(STDERR_FILENO) != 0;
}

bool StandardStreams::canRedraw() const {
    return isScreen(mOutput);
}

bool StandardStreams::canRedrawError() const {
    return isScreen(STDERR_FILENO);
}

void StandardStreams::write(std::string_view text) {
    const int error = writeWhole(mOutput, text);
    if (mOutputError == 0) {
        mOutputError = error;
    }
}

void writeError(std::string_view text) {
    (void)writeWhole(STDERR_FILENO, text);
}

void complain(std::string_view message) {
    std::string line = "kestrova: ";
    line += message;
    line += "\n";
    writeError(line);
}

void printError(std::string_view message, bool plain) {
    std::string line = "kestrova: ";
    line += message;
    writeError((plain ? line : colouredError(line, eRed)) + "\n");
}

}  // namespace app
