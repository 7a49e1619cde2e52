// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_RELAY_H
#define KESTROVA_APP_UI_RELAY_H

#include <string>

namespace app {

class Interrupts;
class StandardStreams;

/// Forwards the streams of a child in both directions at once, so that they cannot deadlock.
class Relay {
public:
    /// Takes ownership of the child's pipes. `in` is -1 for none. With `outputToErrors` both of its
    /// outputs go to standard error.
    Relay(StandardStreams& streams, int in, int out, int err, bool outputToErrors);
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    /// Returns when all pipes are closed: the outputs by their last writer, the input by the child
    /// or at the end of this process's input. Forwards SIGTERM and SIGHUP to the child with this
    /// pid, and then returns when the child has exited. Ignores Ctrl-C, because the terminal sends
    /// it to the child as well.
    void run(const Interrupts& interrupts, int pid);

private:
    bool relayOnce(const Interrupts& interrupts, int pid);
    void takeInput();
    void feed(bool gone);
    void passOutput();
    void passErrors();

    StandardStreams& mStreams;
    int mIn;
    int mOut;
    int mErr;
    bool mOutputToErrors;
    std::string mPending;  // read, and not yet written to the child
    bool mInputEnded = false;
    int mLast = 16;  // pieces that are still forwarded after the child has exited
};

}  // namespace app

#endif
