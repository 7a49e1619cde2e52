// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HOSTLOOKUP_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HOSTLOOKUP_H

#include <netinet/in.h>

#include <string>

namespace http {

/// The resolver's answer for a host.
struct HostLookup {
    int mReturned = 0;        ///< result of gethostbyname_r()
    int mError = 0;           ///< its resolver error number
    bool mFound = false;      ///< whether it gave an entry
    int mFamily = AF_UNSPEC;  ///< the entry's address type
    in_addr mAddress = {};    ///< its first address, when the type is AF_INET
};

/// Resolves a host name or dotted address. Blocks until the resolver answers. A cancellation point:
/// a cancelled caller leaves at once and loses nothing.
///
/// What the resolver has to look up is asked by one of at most 8 threads, which exit when there is
/// nothing left to ask. Callers that want the same host share one question; further hosts wait for
/// a free thread. When no thread can be made for a second, the caller asks the resolver itself, and
/// cannot be cancelled during that.
///
/// Any thread may call it, also in a child after fork(). Logs nothing; throws on allocation failure
/// only.
HostLookup lookUpHost(const std::string& host);

}  // namespace http

#endif
