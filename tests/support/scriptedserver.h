// SPDX-License-Identifier: MIT
//
// The peer of every test of a client: a server on loopback that does with each connection what a
// script says. It has one thread for hundreds of connections at once, and refuses whom it does not
// expect.
#ifndef KESTROVA_TESTS_SUPPORT_SCRIPTEDSERVER_H
#define KESTROVA_TESTS_SUPPORT_SCRIPTEDSERVER_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tests {

/// What the server does with one connection: steps in order. A script that has come to its end
/// sends the end of the stream and waits until the peer has ended too. A peer that is gone ends
/// every step and what follows it.
class Script {
public:
    /// Waits for a whole request: everything up to and with an empty line.
    Script& readRequest() { return add({Step::eRequest, "", 0}); }
    /// Sends bytes, over and over when told so: that may be for ever (kEndless).
    Script& send(const std::string& bytes, std::uint64_t times = 1);
    /// Sends bytes in segments of one byte.
    Script& drip(const std::string& bytes);
    /// Stops until the test calls ScriptedServer::release().
    Script& stall() { return add({Step::eStall, "", 0}); }
    /// Resets the connection: what the peer has not received by then may be lost to it.
    Script& reset() { return add({Step::eReset, "", 0}); }

    static constexpr std::uint64_t kEndless = UINT64_MAX;

private:
    friend class ScriptedServer;

    struct Step {
        enum Kind { eRequest, eSend, eDrip, eStall, eReset };
        Kind mKind;
        std::string mBytes;
        std::uint64_t mTimes;
    };

    Script& add(const Step& step) {
        mSteps.push_back(step);
        return *this;
    }

    std::deque<Step> mSteps;
};

/// Reads the request, sends the whole reply, and ends the stream.
Script replyWith(const std::string& bytes);

/// Connections are counted from 0, in the order in which they were accepted. Every call may come
/// from any thread; those that await something give up, false, after a minute. The destructor
/// resets what is still connected and reports unexpected connections as failures of the test.
class ScriptedServer {
public:
    ScriptedServer();
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int port() const { return mPort; }
    /// "http://127.0.0.1:PORT" and a path.
    std::string url(const std::string& path = "/") const;

    /// The next connection that has no script yet follows this one. A connection for which there is
    /// none is unexpected, and reset.
    void expect(const Script& script);
    /// Every connection that nothing else is expected of follows this one.
    void always(const Script& script);
    /// Every connection that nothing else is expected of sends its request, and then follows what
    /// the function makes of it. It runs in the thread of the server and must not call that.
    void answer(std::function<Script(const std::string& request)> function);

    /// Lets one stall of a connection pass, also one that comes later.
    void release(int connection);
    /// Lets every stall pass from now on.
    void releaseAll();

    /// How many connections have been accepted.
    int connections() const;
    /// How many of them are still there.
    int open() const;
    /// All that a connection has sent so far.
    std::string request(int connection) const;
    /// Whether the peer has ended a connection, by its end of the stream or by a reset.
    bool peerEnded(int connection) const;
    /// Whether the peer has reset it.
    bool peerReset(int connection) const;

    bool awaitConnections(int count);
    /// Until so many connections are in a stall at once.
    bool awaitStalled(int count);
    bool awaitPeerEnd(int connection);
    /// Until a connection has sent a whole request.
    bool awaitRequest(int connection);
    /// Until a connection's script has come to its end, or the peer has ended.
    bool awaitEnd(int connection);
    /// Until no connection is left, neither here nor in the backlog.
    bool awaitIdle();

private:
    struct Connection;

    void run();
    void accept();
    void serve(Connection& connection, int number);
    void receive(Connection& connection);
    bool step(Connection& connection, int number);
    bool send(Connection& connection, const std::string& bytes);
    bool drip(Connection& connection, const std::string& bytes);
    void close(Connection& connection);
    void wake() const;
    bool await(const std::function<bool()>& condition);
    const Connection* find(int connection) const;

    int mListener = -1;
    int mWake = -1;
    int mPort = 0;

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<Connection> mConnections;
    std::deque<Script> mExpected;
    std::function<Script(const std::string&)> mAnswer;
    Script mAlways;
    bool mHasAlways = false;
    std::map<int, int> mReleases;
    bool mReleaseAll = false;
    bool mStop = false;
    int mUnexpected = 0;
    std::thread mThread;
};

/// A port of loopback where nobody answers.
class DeadPort {
public:
    enum Kind {
        eRefusing,  ///< nobody listens, and nobody else can take the port
        eSilent,    ///< connections come about, and nothing else ever happens
        eFull,      ///< no connection comes about, nor a refusal
    };
    explicit DeadPort(Kind kind);
    ~DeadPort();
    DeadPort(const DeadPort&) = delete;
    DeadPort& operator=(const DeadPort&) = delete;

    int port() const { return mPort; }
    std::string url(const std::string& path = "/") const;

private:
    void fill();

    int mSocket = -1;
    int mPort = 0;
    std::vector<int> mFillers;
};

}  // namespace tests

#endif
