// SPDX-License-Identifier: MIT
#include "app/ui/relay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "app/ui/interrupts.h"
#include "app/ui/standardstreams.h"

namespace app {

namespace {

constexpr std::size_t kPiece = 65536;

void closeEnd(int& end) {
    if (end >= 0) {
        (void)::close(end);
        end = -1;
    }
}

bool again(ssize_t count) {
    return count < 0 && (errno == EINTR || errno == EAGAIN);
}

bool hasEnded(int pid) {
    siginfo_t information = {};
    const int flags = WEXITED | WNOHANG | WNOWAIT;
    return ::waitid(P_PID, static_cast<id_t>(pid), &information, flags) != 0 ||
           information.si_pid == pid;
}

/// Reads the available bytes; closes the end at the end of the stream.
std::string readPiece(int& end) {
    std::string piece(kPiece, '\0');
    const ssize_t count = ::read(end, piece.data(), piece.size());
    if (count <= 0 && !again(count)) {
        closeEnd(end);
    }
    piece.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return piece;
}

}  // namespace

Relay::Relay(StandardStreams& streams, int in, int out, int err, bool outputToErrors)
    : mStreams(streams), mIn(in), mOut(out), mErr(err), mOutputToErrors(outputToErrors) {
    if (mIn >= 0) {
        (void)::fcntl(mIn, F_SETFL, O_WRONLY | O_NONBLOCK);
    }
}

Relay::~Relay() {
    closeEnd(mIn);
    closeEnd(mOut);
    closeEnd(mErr);
}

void Relay::run(const Interrupts& interrupts, int pid) {
    while ((mIn >= 0 || mOut >= 0 || mErr >= 0) && relayOnce(interrupts, pid)) {
    }
}

/// Returns false if there is nothing more to wait for.
bool Relay::relayOnce(const Interrupts& interrupts, int pid) {
    constexpr int interval = 50;  // milliseconds between two checks for the child's exit
    const bool wants = mIn >= 0 && mPending.empty() && !mInputEnded;
    const auto writing = static_cast<short>(mPending.empty() ? 0 : POLLOUT);
    pollfd ends[] = {{wants ? mStreams.input() : -1, POLLIN, 0},
                     {mIn, writing, 0},
                     {mOut, POLLIN, 0},
                     {mErr, POLLIN, 0},
                     {interrupts.descriptor(), POLLIN, 0}};
    const int ready =
        ::poll(ends, sizeof(ends) / sizeof(ends[0]), interrupts.ending() != 0 ? interval : -1);
    if (ready < 0) {
        return errno == EINTR;
    }
    if (ends[0].revents != 0) {
        takeInput();
    }
    if (ends[1].revents != 0) {
        feed((ends[1].revents & POLLERR) != 0);
    }
    if (ends[2].revents != 0) {
        passOutput();
    }
    if (ends[3].revents != 0) {
        passErrors();
    }
    if (ends[4].revents != 0 && interrupts.take() && interrupts.ending() != 0) {
        (void)::kill(pid, interrupts.ending());
    }
    // A process that the child has left behind may write forever.
    return interrupts.ending() == 0 || !hasEnded(pid) || (ready > 0 && mLast-- > 0);
}

void Relay::takeInput() {
    mPending.resize(kPiece);
    const ssize_t count = ::read(mStreams.input(), mPending.data(), mPending.size());
    mInputEnded = count <= 0 && !again(count);
    mPending.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    if (mInputEnded) {
        closeEnd(mIn);
    }
}

/// `gone` means that the child does not read any more.
void Relay::feed(bool gone) {
    const ssize_t count = gone ? -1 : ::write(mIn, mPending.data(), mPending.size());
    if (count > 0) {
        mPending.erase(0, static_cast<std::size_t>(count));
    } else if (gone || !again(count)) {
        closeEnd(mIn);
    }
}

void Relay::passOutput() {
    const std::string piece = readPiece(mOut);
    if (mOutputToErrors) {
        writeError(piece);
        return;
    }
    mStreams.write(piece);
    if (mStreams.outputError() != 0) {
        closeEnd(mOut);  // the child then gets SIGPIPE, as it would without the relay
    }
}

void Relay::passErrors() {
    writeError(readPiece(mErr));
}

}  // namespace app
