// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HOSTLOOKUP_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HOSTLOOKUP_H

#include <netinet/in.h>

#include <string>

namespace http {

/// The resolver's answer for a host.
struct HostLookup {
    int mReturned = 0;        ///< result of gethostbyname_r()
    int mError = 0;           ///< resolver error number
    bool mFound = false;      ///< true if it returned an entry
    int mFamily = AF_UNSPEC;  ///< the entry's address type
    in_addr mAddress = {};    ///< the entry's first address, if the type is AF_INET
};

/// Resolves a host name or dotted address. Blocks until the resolver answers. A cancellation point:
/// a cancelled caller returns at once without leaking anything.
///
/// One of at most 8 threads calls the resolver; it exits when there are no more questions. Callers
/// with the same host share one question; other hosts wait for a free thread. If no thread can be
/// created for a second, the caller calls the resolver itself, and cannot be cancelled meanwhile.
///
/// Any thread may call it, even in a child after fork(). Logs nothing; throws only std::bad_alloc.
HostLookup lookUpHost(const std::string& host);

}  // namespace http

#endif
