// SPDX-License-Identifier: MIT
//
// The peer of every client test: a server on loopback that executes a script for each connection.
// It serves hundreds of connections with one thread, and refuses unexpected ones.
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

/// The steps of the server on one connection, in order. After the last step it closes its sending
/// side and waits until the peer has closed as well. If the peer closes or resets the connection
/// first, the remaining steps are skipped.
class Script {
public:
    /// Waits for a whole request: everything up to and including an empty line.
    Script& readRequest() { return add({Step::eRequest, "", 0}); }
    /// Sends bytes, repeatedly if requested; kEndless never stops.
    Script& send(const std::string& bytes, std::uint64_t times = 1);
    /// Sends bytes in segments of one byte.
    Script& drip(const std::string& bytes);
    /// Blocks until the test calls ScriptedServer::release().
    Script& stall() { return add({Step::eStall, "", 0}); }
    /// Resets the connection: the peer may lose bytes that it has not received yet.
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

/// Reads the request, sends the whole reply, and closes the stream.
Script replyWith(const std::string& bytes);

/// A server on loopback. Connections are numbered from 0, in the order in which they were accepted.
/// Any thread may make any call. Calls that wait return false after a minute. The destructor resets
/// open connections and reports unexpected ones as test failures.
class ScriptedServer {
public:
    ScriptedServer();
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int port() const { return mPort; }
    /// Returns "http://127.0.0.1:PORT" and a path.
    std::string url(const std::string& path = "/") const;

    /// Sets the script for the next connection that has none yet. A connection without a script is
    /// unexpected, and reset.
    void expect(const Script& script);
    /// Sets the script for every connection without a specific one.
    void always(const Script& script);
    /// Sets a function for every connection without a specific script: it receives the request and
    /// returns the script. It runs in the server's thread and must not call the server.
    void answer(std::function<Script(const std::string& request)> function);

    /// Ends one stall of a connection, even one that has not started yet.
    void release(int connection);
    /// Ends every stall, now and later.
    void releaseAll();

    /// Returns the number of accepted connections.
    int connections() const;
    /// Returns the number of connections that are still open.
    int open() const;
    /// Returns all bytes received on a connection so far.
    std::string request(int connection) const;
    /// Returns whether the peer has closed or reset a connection.
    bool peerEnded(int connection) const;
    /// Returns whether the peer has reset it.
    bool peerReset(int connection) const;

    bool awaitConnections(int count);
    /// Waits until this many connections are in a stall at once.
    bool awaitStalled(int count);
    bool awaitPeerEnd(int connection);
    /// Waits until a connection has sent a whole request.
    bool awaitRequest(int connection);
    /// Waits until a connection's script has ended, or the peer has closed.
    bool awaitEnd(int connection);
    /// Waits until no connection is left, including the backlog.
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

/// A port of loopback where no process answers.
class DeadPort {
public:
    enum Kind {
        eRefusing,  ///< no process listens, and no other process can take the port
        eSilent,    ///< connections are accepted, and nothing else happens
        eFull,      ///< connections are neither accepted nor refused
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
