// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_RELAY_H
#define KESTROVA_APP_UI_RELAY_H

#include <string>

namespace app {

class Interrupts;
class StandardStreams;

/// Passes the streams of a child through, in both directions at once, so that neither side waits
/// for one that waits itself.
class Relay {
public:
    /// The child's pipes; owned from here on. `in` is -1 for none. With `outputToErrors` both of
    /// its outputs go to standard error.
    Relay(StandardStreams& streams, int in, int out, int err, bool outputToErrors);
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    /// Returns when all ends are closed: its outputs by whoever writes there, its input by itself
    /// or at the end of ours. SIGTERM and SIGHUP are passed on to the child with this pid; after
    /// that, returns when the child has ended. Ctrl-C is dropped: the terminal sends it to the
    /// child, too.
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
    std::string mPending;  // read, and not yet taken by the child
    bool mInputEnded = false;
    int mLast = 16;  // pieces that are still passed on when the child was ended
};

}  // namespace app

#endif
