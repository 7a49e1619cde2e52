// SPDX-License-Identifier: MIT
#include "System/protocols/http/httpconnection.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "System/protocols/http/hostlookup.h"
#include "base/cancelguard.h"
#include "base/descriptor.h"
#include "base/log.h"
#include "base/sigpipeguard.h"

namespace {

constexpr char kSource[] = "System/protocols/http/httpconnection";
constexpr timeval kTimeOut = {30, 0};
constexpr int kStatusOk = 200;

/// The host's first IPv4 address with the port; false with a log line when there is none.
bool resolve(const httpURL& url, sockaddr_in& address) {
    const HostLookup host = lookUpHost(url.host());
    if (!host.mFound) {
        base::logMessageAt(kSource, __LINE__, 1,
                           "Error looking up hostname: '%s', ret %d, error %d, pHe %d\n",
                           url.host().c_str(), host.mReturned, host.mError, 0);
        return false;
    }
    if (host.mFamily != AF_INET) {
        base::logMessageAt(kSource, __LINE__, 1, "Unknown addrtype from gethostbyname\n");
        return false;
    }
    address.sin_family = AF_INET;
    address.sin_port = htons(url.port());
    address.sin_addr = host.mAddress;
    return true;
}

/// Bounds every single receive or send.
void setTimeOut(int socket, int option) {
    if (::setsockopt(socket, SOL_SOCKET, option, &kTimeOut, sizeof(kTimeOut)) != 0) {
        // One text for both time-outs is meant, and that it ends no line.
        base::logMessageAt(kSource, __LINE__, 1, "setsockopt(SO_SNDTIMEO)");
    }
}

/// One send; true when it took the whole text. A peer that is gone fails it and raises nothing.
bool sendText(int socket, const std::string& text) {
    const base::SigpipeGuard guard;
    return ::send(socket, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

}  // namespace

bool HTTPConnection::connectToServer(httpURL& url) {
    dropSocket();
    sockaddr_in address = {};
    if (!resolve(url, address)) {
        return false;
    }
    mSocket = base::openSocket(AF_INET, SOCK_STREAM).release();
    if (mSocket < 0) {
        base::logMessageAt(kSource, __LINE__, 1, "Socket Error\n");
        return false;
    }
    setTimeOut(mSocket, SO_RCVTIMEO);
    setTimeOut(mSocket, SO_SNDTIMEO);
    if (::connect(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        base::logMessageAt(kSource, __LINE__, 1, "Connect error\n");
        return false;
    }
    return true;
}

bool HTTPConnection::Open(const char* url, HTTPReplyHeader& hdr) {
    httpURL u;
    if (!u.parse(url)) {
        base::logMessageAt(kSource, __LINE__, 1, "u.parse failed\n");
        return false;
    }
    if (!connectToServer(u)) {
        return false;
    }
    if (!sendText(mSocket, u.createRequest())) {
        base::logMessageAt(kSource, __LINE__, 1, "Error sending request\n");
        // True is meant: callers find out by their first Read().
        return true;
    }
    if (!hdr.readHeader(mSocket)) {
        base::logMessageAt(kSource, __LINE__, 1, "hdr.readHeader failed\n");
        return false;
    }
    if (hdr.code() != kStatusOk) {
        base::logMessageAt(kSource, __LINE__, 1, "hdr.code() %d\n", hdr.code());
        return false;
    }
    return true;
}

bool HTTPConnection::Open(const char* url) {
    HTTPReplyHeader hdr;
    return Open(url, hdr);
}

// Not const: it uses up the body. NOLINTNEXTLINE(readability-make-member-function-const)
int HTTPConnection::Read(void* buf, unsigned int len) {
    // The kernel moves at most 2 GiB less a page at once, so that the count always fits.
    return static_cast<int>(::recv(mSocket, buf, len, 0));
}

void HTTPConnection::dropSocket() {
    // A cancellation between the close and the reset would let a later close hit a stranger.
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
