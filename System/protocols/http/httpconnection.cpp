// SPDX-License-Identifier: MIT
#include "System/protocols/http/httpconnection.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "System/protocols/http/failurenote.h"
#include "System/protocols/http/hostlookup.h"
#include "base/cancelguard.h"
#include "base/io/descriptor.h"
#include "base/log/log.h"

namespace {

constexpr char kSource[] = "System/protocols/http/httpconnection";
constexpr timeval kTimeOut = {30, 0};
constexpr int kStatusOk = 200;

void noteLookup(const http::HostLookup& host) {
    const bool unknown = host.mError == HOST_NOT_FOUND || host.mError == NO_DATA;
    const bool hasErrno = host.mError == NETDB_INTERNAL;
    http::noteFailure(unknown ? HTTPFailure::eUnknownHost : HTTPFailure::eLookup,
                      hasErrno ? host.mReturned : 0);
}

void noteConnect(int error) {
    // A connection attempt that reaches the limit of SO_SNDTIMEO fails with EINPROGRESS.
    const bool late = error == EINPROGRESS || error == EAGAIN || error == ETIMEDOUT;
    HTTPFailure::Reason reason = late ? HTTPFailure::eConnectTimeOut : HTTPFailure::eConnect;
    http::noteFailure(error == ECONNREFUSED ? HTTPFailure::eRefused : reason, error);
}

/// Finds the host's first IPv4 address and sets the port. Returns false, and logs, if there is
/// none.
bool resolve(const httpURL& url, sockaddr_in& address) {
    const http::HostLookup host = http::lookUpHost(url.host());
    if (!host.mFound) {
        noteLookup(host);
        base::logMessageAt(kSource, __LINE__, 1,
                           "Error looking up hostname: '%s', ret %d, error %d, pHe %d\n",
                           url.host().c_str(), host.mReturned, host.mError, 0);
        return false;
    }
    if (host.mFamily != AF_INET) {
        http::noteFailure(HTTPFailure::eUnknownHost);
        base::logMessageAt(kSource, __LINE__, 1, "Unknown addrtype from gethostbyname\n");
        return false;
    }
    address.sin_family = AF_INET;
    address.sin_port = htons(url.port());
    address.sin_addr = host.mAddress;
    return true;
}

/// Limits the duration of every single receive or send.
void setTimeOut(int socket, int option) {
    if (::setsockopt(socket, SOL_SOCKET, option, &kTimeOut, sizeof(kTimeOut)) != 0) {
        // Both options share this message, which has no newline.
        base::logMessageAt(kSource, __LINE__, 1, "setsockopt(SO_SNDTIMEO)");
    }
}

/// Sends once. Returns true if the kernel accepted the whole text. A closed peer does not raise
/// SIGPIPE.
bool sendText(int socket, const std::string& text) {
    const ssize_t sent = ::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(text.size())) {
        return true;
    }
    // The kernel accepts a part of the text if the time limit expires before it has room for the
    // rest.
    const int error = sent < 0 ? errno : EAGAIN;
    http::noteFailure(error == EAGAIN ? HTTPFailure::eSendTimeOut : HTTPFailure::eSend, error);
    return false;
}

void noteRead(bool connected, int error) {
    const HTTPFailure::Reason before = http::notedFailure().mReason;
    if (before == HTTPFailure::eSend || before == HTTPFailure::eSendTimeOut) {
        return;  // the failed send is the cause of this failure
    }
    if (connected) {
        http::noteReceiveFailure(error);
    } else {
        http::noteFailure(HTTPFailure::eSocket, error);
    }
}

}  // namespace

bool HTTPConnection::connectToServer(httpURL& url) {
    http::noteFailure(HTTPFailure::eNone);
    dropSocket();
    sockaddr_in address = {};
    if (!resolve(url, address)) {
        return false;
    }
    mSocket = base::openSocket(AF_INET, SOCK_STREAM).release();
    if (mSocket < 0) {
        http::noteFailure(HTTPFailure::eSocket, errno);
        base::logMessageAt(kSource, __LINE__, 1, "Socket Error\n");
        return false;
    }
    setTimeOut(mSocket, SO_RCVTIMEO);
    setTimeOut(mSocket, SO_SNDTIMEO);
    if (::connect(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        noteConnect(errno);
        base::logMessageAt(kSource, __LINE__, 1, "Connect error\n");
        return false;
    }
    return true;
}

bool HTTPConnection::Open(const char* url, HTTPReplyHeader& hdr) {
    httpURL u;
    if (!u.parse(url)) {
        http::noteFailure(HTTPFailure::eAddress);
        base::logMessageAt(kSource, __LINE__, 1, "u.parse failed\n");
        return false;
    }
    if (!connectToServer(u)) {
        return false;
    }
    if (!sendText(mSocket, u.createRequest())) {
        base::logMessageAt(kSource, __LINE__, 1, "Error sending request\n");
        // Returns true on purpose: callers detect the failure with their first Read().
        return true;
    }
    if (!hdr.readHeader(mSocket)) {
        base::logMessageAt(kSource, __LINE__, 1, "hdr.readHeader failed\n");
        return false;
    }
    if (hdr.code() != kStatusOk) {
        http::noteStatus(hdr.code(), hdr.reason());
        base::logMessageAt(kSource, __LINE__, 1, "hdr.code() %d\n", hdr.code());
        return false;
    }
    return true;
}

bool HTTPConnection::Open(const char* url) {
    HTTPReplyHeader hdr;
    return Open(url, hdr);
}

// Not const, because it consumes the body. NOLINTNEXTLINE(readability-make-member-function-const)
int HTTPConnection::Read(void* buf, unsigned int len) {
    // The kernel transfers at most 2 GiB minus a page at once, so the count always fits.
    const ssize_t count = ::recv(mSocket, buf, len, 0);
    if (count < 0) {
        noteRead(mSocket >= 0, errno);
    }
    return static_cast<int>(count);
}

const HTTPFailure& HTTPConnection::lastFailure() {
    return http::notedFailure();
}

void HTTPConnection::dropSocket() {
    // With a cancellation between the close and the reset, a later close() could close a descriptor
    // that has been reused.
    const base::CancelGuard guard;
    if (mSocket >= 0) {
        (void)::close(std::exchange(mSocket, -1));
    }
}

void HTTPConnection::Close() {
    if (mSocket >= 0) {
        (void)::shutdown(mSocket, SHUT_RDWR);
        dropSocket();
    }
}
