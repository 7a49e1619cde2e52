// SPDX-License-Identifier: MIT
#include "tests/support/scriptedserver.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "tests/support/failingcalls.h"

namespace tests {

namespace {

constexpr char kEndOfRequest[] = "\r\n\r\n";
/// More than any test's number of simultaneous connections.
constexpr int kBacklog = 1000;
/// Limit of a drip's segments in flight: fewer than the kernel sends unacknowledged, so that it
/// never joins two.
constexpr int kDripsOnTheirWay = 8;

int require(int result, const char* what) {
    if (result < 0) {
        std::perror(what);
        std::abort();
    }
    return result;
}

sockaddr_in loopback(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

/// Binds a socket to a free port of loopback. Returns the port.
int bindToLoopback(int socket) {
    sockaddr_in address = loopback(0);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof(address);
    require(::bind(socket, plain, size), "bind");
    require(::getsockname(socket, plain, &size), "getsockname");
    return ntohs(address.sin_port);
}

int makeSocket(int flags) {
    return require(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0), "socket");
}

std::string urlOf(int port, const std::string& path) {
    return "http://127.0.0.1:" + std::to_string(port) + path;
}

}  // namespace

Script& Script::send(const std::string& bytes, std::uint64_t times) {
    return bytes.empty() || times == 0 ? *this : add({Step::eSend, bytes, times});
}

Script& Script::drip(const std::string& bytes) {
    return bytes.empty() ? *this : add({Step::eDrip, bytes, 1});
}

Script replyWith(const std::string& bytes) {
    return Script().readRequest().send(bytes);
}

struct ScriptedServer::Connection {
    int mSocket = -1;
    std::deque<Script::Step> mSteps;
    std::size_t mSent = 0;      ///< bytes sent of the current step
    std::size_t mAnswered = 0;  ///< received bytes that belong to requests that were read
    bool mAwaitsAnswer = false;
    bool mStalled = false;
    bool mFull = false;  ///< has more to send when the socket is writable
    bool mDrips = false;
    bool mScriptEnded = false;
    bool mPeerEnded = false;
    bool mPeerReset = false;
    bool mReady = true;  ///< bytes have arrived, or may be sent
    std::string mReceived;
};

ScriptedServer::ScriptedServer() {
    const failingcalls::Exempt exempt;
    mListener = makeSocket(SOCK_NONBLOCK);
    mPort = bindToLoopback(mListener);
    require(::listen(mListener, kBacklog), "listen");
    mWake = require(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd");
    mThread = std::thread([this] {
        const failingcalls::Exempt alsoHere;
        run();
    });
}

ScriptedServer::~ScriptedServer() {
    const failingcalls::Exempt exempt;
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mStop = true;
    }
    wake();
    mThread.join();
    for (Connection& connection : mConnections) {
        close(connection);
    }
    (void)::close(mListener);
    (void)::close(mWake);
    EXPECT_EQ(0, mUnexpected) << "connections that the server did not expect";
}

std::string ScriptedServer::url(const std::string& path) const {
    return urlOf(mPort, path);
}

void ScriptedServer::expect(const Script& script) {
    const std::lock_guard<std::mutex> lock(mLock);
    mExpected.push_back(script);
}

void ScriptedServer::always(const Script& script) {
    const std::lock_guard<std::mutex> lock(mLock);
    mAlways = script;
    mHasAlways = true;
}

void ScriptedServer::answer(std::function<Script(const std::string& request)> function) {
    const std::lock_guard<std::mutex> lock(mLock);
    mAnswer = std::move(function);
}

void ScriptedServer::release(int connection) {
    {
        const std::lock_guard<std::mutex> lock(mLock);
        ++mReleases[connection];
    }
    wake();
}

void ScriptedServer::releaseAll() {
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mReleaseAll = true;
    }
    wake();
}

/// Returns null for a connection that has not been accepted yet.
const ScriptedServer::Connection* ScriptedServer::find(int connection) const {
    const auto number = static_cast<std::size_t>(connection);
    return number < mConnections.size() ? &mConnections[number] : nullptr;
}

int ScriptedServer::connections() const {
    const std::lock_guard<std::mutex> lock(mLock);
    return static_cast<int>(mConnections.size());
}

int ScriptedServer::open() const {
    const std::lock_guard<std::mutex> lock(mLock);
    int count = 0;
    for (const Connection& connection : mConnections) {
        count += connection.mSocket >= 0 ? 1 : 0;
    }
    return count;
}

std::string ScriptedServer::request(int connection) const {
    const std::lock_guard<std::mutex> lock(mLock);
    const Connection* const found = find(connection);
    return found != nullptr ? found->mReceived : std::string();
}

bool ScriptedServer::peerEnded(int connection) const {
    const std::lock_guard<std::mutex> lock(mLock);
    const Connection* const found = find(connection);
    return found != nullptr && found->mPeerEnded;
}

bool ScriptedServer::peerReset(int connection) const {
    const std::lock_guard<std::mutex> lock(mLock);
    const Connection* const found = find(connection);
    return found != nullptr && found->mPeerReset;
}

bool ScriptedServer::await(const std::function<bool()>& condition) {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, std::chrono::minutes(1), condition);
}

bool ScriptedServer::awaitConnections(int count) {
    return await([&] { return mConnections.size() >= static_cast<std::size_t>(count); });
}

bool ScriptedServer::awaitStalled(int count) {
    return await([&] {
        int stalled = 0;
        for (const Connection& connection : mConnections) {
            stalled += connection.mStalled ? 1 : 0;
        }
        return stalled >= count;
    });
}

bool ScriptedServer::awaitPeerEnd(int connection) {
    return await([&] { return find(connection) != nullptr && find(connection)->mPeerEnded; });
}

bool ScriptedServer::awaitRequest(int connection) {
    return await([&] {
        const Connection* const found = find(connection);
        return found != nullptr && found->mReceived.find(kEndOfRequest) != std::string::npos;
    });
}

bool ScriptedServer::awaitEnd(int connection) {
    return await([&] {
        const Connection* const found = find(connection);
        return found != nullptr && (found->mScriptEnded || found->mPeerEnded);
    });
}

bool ScriptedServer::awaitIdle() {
    return await([&] {
        const failingcalls::Exempt exempt;
        pollfd backlog = {mListener, POLLIN, 0};
        for (const Connection& connection : mConnections) {
            if (connection.mSocket >= 0) {
                return false;
            }
        }
        return ::poll(&backlog, 1, 0) == 0;
    });
}

void ScriptedServer::wake() const {
    const failingcalls::Exempt exempt;
    const std::uint64_t one = 1;
    (void)!::write(mWake, &one, sizeof(one));
}

void ScriptedServer::run() {
    std::unique_lock<std::mutex> lock(mLock);
    while (!mStop) {
        std::vector<pollfd> descriptors = {{mWake, POLLIN, 0}, {mListener, POLLIN, 0}};
        std::vector<std::size_t> numbers;
        int timeOut = -1;
        for (std::size_t number = 0; number < mConnections.size(); ++number) {
            const Connection& connection = mConnections[number];
            if (connection.mSocket >= 0) {
                const int events = connection.mFull ? POLLIN | POLLOUT : POLLIN;
                descriptors.push_back({connection.mSocket, static_cast<short>(events), 0});
                numbers.push_back(number);
                // Poll briefly, because no event reports that a byte has arrived at the peer.
                timeOut = connection.mDrips ? 1 : timeOut;
            }
        }
        lock.unlock();
        (void)::poll(descriptors.data(), descriptors.size(), timeOut);
        lock.lock();
        std::uint64_t wakes = 0;
        (void)!::read(mWake, &wakes, sizeof(wakes));
        for (std::size_t index = 0; index < numbers.size(); ++index) {
            mConnections[numbers[index]].mReady = descriptors[index + 2].revents != 0;
            serve(mConnections[numbers[index]], static_cast<int>(numbers[index]));
        }
        if (descriptors[1].revents != 0) {
            accept();
        }
        mChanged.notify_all();
    }
}

void ScriptedServer::accept() {
    const int socket = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket < 0) {
        return;
    }
    const int on = 1;
    require(::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)), "TCP_NODELAY");
    const int number = static_cast<int>(mConnections.size());
    Connection& connection = mConnections.emplace_back();
    connection.mSocket = socket;
    if (!mExpected.empty()) {
        connection.mSteps = std::move(mExpected.front().mSteps);
        mExpected.pop_front();
    } else if (mAnswer) {
        connection.mSteps = Script().readRequest().mSteps;
        connection.mAwaitsAnswer = true;
    } else if (mHasAlways) {
        connection.mSteps = mAlways.mSteps;
    } else {
        connection.mSteps = Script().reset().mSteps;
        ++mUnexpected;
    }
    serve(connection, number);
}

void ScriptedServer::serve(Connection& connection, int number) {
    if (connection.mReady) {
        receive(connection);
    }
    while (!connection.mPeerEnded && !connection.mSteps.empty() && step(connection, number)) {
        connection.mSteps.pop_front();
        connection.mSent = 0;
        if (connection.mAwaitsAnswer) {
            connection.mAwaitsAnswer = false;
            connection.mSteps = mAnswer(connection.mReceived).mSteps;
        }
    }
    connection.mStalled = !connection.mPeerEnded && !connection.mSteps.empty() &&
                          connection.mSteps.front().mKind == Script::Step::eStall;
    if (connection.mSteps.empty() && !connection.mScriptEnded) {
        connection.mScriptEnded = true;
        if (connection.mSocket >= 0) {
            (void)::shutdown(connection.mSocket, SHUT_WR);
        }
    }
    if (connection.mPeerEnded) {
        close(connection);
    }
}

void ScriptedServer::receive(Connection& connection) {
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::recv(connection.mSocket, buffer, sizeof(buffer), 0);
        if (count > 0) {
            connection.mReceived.append(buffer, static_cast<std::size_t>(count));
        } else if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        } else {
            connection.mPeerEnded = true;
            connection.mPeerReset = count < 0;
            return;
        }
    }
}

/// Returns true if the step is complete, false if it must wait.
bool ScriptedServer::step(Connection& connection, int number) {
    Script::Step& step = connection.mSteps.front();
    switch (step.mKind) {
        case Script::Step::eRequest: {
            const auto end = connection.mReceived.find(kEndOfRequest, connection.mAnswered);
            if (end == std::string::npos) {
                return false;
            }
            connection.mAnswered = end + sizeof(kEndOfRequest) - 1;
            return true;
        }
        case Script::Step::eSend:
            // One piece per turn, so that other connections are served as well.
            if (!send(connection, step.mBytes)) {
                return false;
            }
            connection.mSent = 0;
            connection.mFull = step.mTimes == Script::kEndless || --step.mTimes != 0;
            return !connection.mFull;
        case Script::Step::eDrip:
            return drip(connection, step.mBytes);
        case Script::Step::eStall:
            if (mReleaseAll) {
                return true;
            }
            return mReleases[number] > 0 && mReleases[number]-- > 0;
        case Script::Step::eReset:
            close(connection);
            return true;
    }
    return true;
}

/// Returns true if all bytes of the step have been sent.
bool ScriptedServer::send(Connection& connection, const std::string& bytes) {
    const ssize_t count = ::send(connection.mSocket, bytes.data() + connection.mSent,
                                 bytes.size() - connection.mSent, MSG_NOSIGNAL);
    if (count > 0) {
        connection.mSent += static_cast<std::size_t>(count);
    } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
        connection.mPeerEnded = true;
        connection.mPeerReset = true;
    }
    connection.mFull = connection.mSent < bytes.size();
    return !connection.mFull;
}

bool ScriptedServer::drip(Connection& connection, const std::string& bytes) {
    connection.mDrips = true;
    while (connection.mSent < bytes.size()) {
        int unacknowledged = 0;
        if (::ioctl(connection.mSocket, SIOCOUTQ, &unacknowledged) != 0 ||
            unacknowledged >= kDripsOnTheirWay) {
            return false;
        }
        if (::send(connection.mSocket, bytes.data() + connection.mSent, 1, MSG_NOSIGNAL) != 1) {
            // The next receive reports the reason.
            return false;
        }
        ++connection.mSent;
    }
    connection.mDrips = false;
    return true;
}

/// Closes a connection with a reset, so that it does not stay in the kernel in TIME_WAIT and occupy
/// a port. A peer that has closed its end does not notice.
void ScriptedServer::close(Connection& connection) {
    if (connection.mSocket >= 0) {
        const linger now = {1, 0};
        (void)::setsockopt(connection.mSocket, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
        (void)::close(std::exchange(connection.mSocket, -1));
    }
}

DeadPort::DeadPort(Kind kind) {
    const failingcalls::Exempt exempt;
    mSocket = makeSocket(0);
    mPort = bindToLoopback(mSocket);
    if (kind != eRefusing) {
        require(::listen(mSocket, kind == eFull ? 0 : kBacklog), "listen");
    }
    if (kind == eFull) {
        fill();
    }
}

DeadPort::~DeadPort() {
    const failingcalls::Exempt exempt;
    for (const int filler : mFillers) {
        (void)::close(filler);
    }
    (void)::close(mSocket);
}

/// Fills the backlog, so that the kernel drops all further attempts.
void DeadPort::fill() {
    const sockaddr_in address = loopback(mPort);
    bool connected = true;
    while (connected) {
        const int filler = makeSocket(SOCK_NONBLOCK);
        mFillers.push_back(filler);
        (void)::connect(filler, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        pollfd waiting = {filler, POLLOUT, 0};
        connected = ::poll(&waiting, 1, 0) == 1;
    }
}

std::string DeadPort::url(const std::string& path) const {
    return urlOf(mPort, path);
}

}  // namespace tests
