// SPDX-License-Identifier: MIT
/// @file
/// A blocking HTTP/1.0 client connection (RFC 1945).
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPCONNECTION_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPCONNECTION_H

#include "System/protocols/http/httpfailure.h"
#include "System/protocols/http/httpreplyheader.h"
#include "System/protocols/http/httpurl.h"
#include "base/export.h"

/// One request over one TCP socket: Open(), then Read() until it returns 0 or less, then Close().
/// Follows no redirects, knows no chunked transfer coding, and accepts only status 200.
///
/// Every call blocks. The socket waits at most 30 s for each piece that it receives or sends; a
/// connection attempt waits at most that long too, the resolver as long as it is configured to.
/// There is no limit for the whole: a server that sends a byte now and then holds the caller. A
/// limit that the kernel refuses is logged and not kept. The socket is close-on-exec and never
/// takes the place of a missing standard stream.
///
/// Threads: no lock, one thread at a time; several connections may work at once. Open(),
/// connectToServer() and Read() are cancellation points and may be left by a cancellation at any
/// moment: the socket is then still closed by Close(), by the next Open() or by the destructor. A
/// host that is not only digits and dots is resolved by one of at most 8 threads of the process; a
/// caller waits for a free one, and a thread runs on until the resolver has answered or given up.
/// If no such thread can be created for a second, the caller asks the resolver itself and cannot be
/// cancelled until it returns.
/// Failures are logged at level 1, why a header was refused at level 2; only allocation failure is
/// thrown.
class KESTROVA_EXPORT HTTPConnection {
public:
    /// No socket.
    HTTPConnection() = default;
    /// As Close().
    ~HTTPConnection() { Close(); }
    HTTPConnection(const HTTPConnection&) = delete;
    HTTPConnection& operator=(const HTTPConnection&) = delete;

    /// Resolves the host and connects to its first IPv4 address, after closing an earlier socket.
    /// After a failure there may still be a socket.
    /// @param url where to; not changed
    /// @return true when connected
    bool connectToServer(httpURL& url);

    /// Sends the request for an address and reads the reply's header. After a failure there may
    /// still be a socket.
    /// @param url an "http://" address, as httpURL::parse() takes it
    /// @param[out] hdr the header; after a failure what was read of it, so give a new one
    /// @return true when the status is 200: the body is then ready for Read(). True as well, with
    /// `hdr` as it was, when the request could not be sent (logged): a new `hdr` has code 0 then,
    /// and lastFailure() returns eSend or eSendTimeOut. Do not read such a connection: Read()
    /// returns what the server has sent before, its header included, or 0, as for an empty
    /// document, or less
    bool Open(const char* url, HTTPReplyHeader& hdr);
    /// See Open(url, hdr); does not keep the header.
    /// @param url an "http://" address, as httpURL::parse() takes it
    /// @return see Open(url, hdr); only lastFailure() shows that the request could not be sent
    bool Open(const char* url);

    /// Receives some of the body with one recv(). Logs nothing.
    /// @param[out] buf the bytes
    /// @param len room in it, in bytes
    /// @return how many bytes came; 0 at the end, also when that comes before the announced length;
    /// negative on an error, without a socket, or after 30 s without a byte: errno tells which
    int Read(void* buf, unsigned int len);

    /// Returns why the calling thread's last Open(), connectToServer() or Read() failed, on any
    /// connection, like errno. Open() and connectToServer() set it to eNone first, so that a
    /// failed send shows although Open() returns true. A Read() that succeeds does not change it,
    /// nor does a Read() that fails after a failed send.
    ///
    /// The callbacks of the fetchers run in the worker, so there it returns what made the worker's
    /// download fail: in a sysUrlFetcher's with eUrlFetchError and eUrlFetchOpenFailed, in a
    /// sysChainFetcher's of the last attempt. Never blocks, logs or fails.
    /// @return a record of the calling thread, valid until the thread ends; its next call of the
    /// HTTP client overwrites it
    static const HTTPFailure& lastFailure();

    /// Shuts the socket down and closes it; does nothing when there is none. No cancellation point.
    void Close();

private:
    KESTROVA_LOCAL void dropSocket();

    int mSocket = -1;
};

#endif
