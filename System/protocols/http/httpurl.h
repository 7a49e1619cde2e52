// SPDX-License-Identifier: MIT
/// @file
/// An "http://" address and the request for it.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPURL_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPURL_H

#include <cstdint>
#include <string>

#include "base/export.h"

/// One parsed address with an explicit path, such as "http://host:8080/a?b". There is no https, no
/// user information and no percent-decoding, and a fragment is part of the path.
///
/// Threads: no lock, one thread at a time. No function blocks or logs; the only exception is
/// std::bad_alloc.
class KESTROVA_EXPORT httpURL {
public:
    /// No address: host and path are empty, and the port is not set (0) until reset() or parse().
    httpURL() = default;

    /// Clears the address and sets port 80.
    void reset();

    /// Parses an address. The host may be empty ("http:///x"); createRequest() then returns
    /// nothing. An empty port ("http://host:/x") is 0.
    /// @param text the address; "http://" is matched case-insensitively
    /// @return false, with the object unchanged, if the text is null or begins otherwise; false,
    /// with the object reset, if there is no path ("http://host") or the port is not a number from
    /// 0 to 65535
    bool parse(const char* text);

    /// @return the text of an HTTP/1.0 GET request (RFC 1945) with its Host line and its empty
    /// line, the path exactly as written; empty if there is no host
    std::string createRequest() const;

    /// @return the host name or dotted address, exactly as written; valid until the next parse() or
    /// reset()
    const std::string& host() const { return mHost; }
    /// @return the TCP port, in host byte order
    std::uint16_t port() const { return mPort; }
    /// @return the text from the first '/' after the host to the end, including a query; valid
    /// until the next parse() or reset()
    const std::string& path() const { return mPath; }

private:
    std::string mHost;
    std::uint16_t mPort = 0;
    std::string mPath;
};

#endif
