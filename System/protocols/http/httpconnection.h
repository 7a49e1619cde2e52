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
/// Follows no redirects, does not support chunked transfer coding, and accepts only status 200.
///
/// Every call blocks. The socket waits at most 30 s for each piece that it receives or sends, and
/// at most 30 s for a connection; the resolver waits as long as it is configured to. There is no
/// limit for the whole request: a server that sends a byte now and then keeps the caller waiting. A
/// time limit that the kernel refuses is logged and not applied. The socket is close-on-exec and
/// never gets the number of a missing standard stream.
///
/// Threads: no lock, one thread at a time; several connections may work at once. Open(),
/// connectToServer() and Read() are cancellation points, and a thread may be cancelled in them at
/// any moment: Close(), the next Open() or the destructor then closes the socket. A host that does
/// not consist only of digits and dots is resolved by one of at most 8 threads of the process; a
/// caller waits for a free one, and a thread keeps running until the resolver returns. If no such
/// thread can be created for a second, the caller calls the resolver itself and cannot be cancelled
/// until it returns.
///
/// Failures are logged at level 1, the reason why a header was refused at level 2; the only
/// exception is std::bad_alloc.
///
/// @code
/// bool show(const char* address) {
///     HTTPConnection connection;
///     HTTPReplyHeader header;
///     if (!connection.Open(address, header) || header.code() != 200) {
///         return false;  // a request that could not be sent leaves code 0
///     }
///     char piece[1024];
///     long long length = 0;
///     int n = 0;
///     while ((n = connection.Read(piece, sizeof(piece))) > 0) {
///         std::fwrite(piece, 1, static_cast<std::size_t>(n), stdout);
///         length += n;
///     }
///     return n == 0 && length >= header.contentSize();
/// }
/// @endcode
class KESTROVA_EXPORT HTTPConnection {
public:
    /// No socket.
    HTTPConnection() = default;
    /// Calls Close().
    ~HTTPConnection() { Close(); }
    HTTPConnection(const HTTPConnection&) = delete;
    HTTPConnection& operator=(const HTTPConnection&) = delete;

    /// Resolves the host and connects to its first IPv4 address, after closing an earlier socket. A
    /// socket may still be open after a failure.
    /// @param url host and port to connect to; not changed
    /// @return true if connected
    bool connectToServer(httpURL& url);

    /// Sends the request for an address and reads the reply's header. A socket may still be open
    /// after a failure.
    /// @param url an "http://" address that httpURL::parse() accepts
    /// @param[out] hdr the header; after a failure the part of it that was read, so pass a new
    /// object to each call
    /// @return true if the status is 200: Read() then returns the body. Also true, with `hdr`
    /// unchanged, if the request could not be sent (logged): a new `hdr` then has code 0, and
    /// lastFailure() returns eSend or eSendTimeOut. Do not read such a connection: Read() returns
    /// what the server has already sent, including its header, or 0 as for an empty document, or a
    /// negative value
    bool Open(const char* url, HTTPReplyHeader& hdr);
    /// Like Open(url, hdr), but discards the header.
    /// @param url an "http://" address that httpURL::parse() accepts
    /// @return the same as Open(url, hdr); only lastFailure() shows that the request could not be
    /// sent
    bool Open(const char* url);

    /// Receives a part of the body with one recv(). Logs nothing.
    /// @param[out] buf the bytes
    /// @param len size of `buf` in bytes
    /// @return the number of bytes received; 0 at the end of the stream, even if that is before the
    /// announced length; negative on an error, without a socket, or after 30 s without a byte, with
    /// errno set
    int Read(void* buf, unsigned int len);

    /// Returns why the calling thread's last Open(), connectToServer() or Read() failed, on any
    /// connection, like errno. Open() and connectToServer() first set it to eNone, so that a failed
    /// send is visible although Open() returns true. A Read() that succeeds does not change it, nor
    /// does a Read() that fails after a failed send.
    ///
    /// The callbacks of the fetchers run in the worker, where this returns why the worker's
    /// download failed: in a callback of sysUrlFetcher for eUrlFetchError and eUrlFetchOpenFailed,
    /// in a callback of sysChainFetcher for the last attempt. Never blocks, logs or fails.
    /// @return a record of the calling thread, valid until the thread exits; the thread's next call
    /// of the HTTP client overwrites it
    static const HTTPFailure& lastFailure();

    /// Shuts the socket down and closes it; does nothing if there is none. Not a cancellation
    /// point.
    void Close();

private:
    KESTROVA_LOCAL void dropSocket();

    int mSocket = -1;
};

#endif
