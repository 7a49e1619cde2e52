// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HOSTLOOKUP_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HOSTLOOKUP_H

#include <netinet/in.h>

#include <string>

/// What the resolver said of a host.
struct HostLookup {
    int mReturned = 0;        ///< result of gethostbyname_r()
    int mError = 0;           ///< its resolver error number
    bool mFound = false;      ///< whether it gave an entry
    int mFamily = AF_UNSPEC;  ///< the entry's address type
    in_addr mAddress = {};    ///< its first address, when the type is AF_INET
};

/// Resolves a host name or dotted address. Blocks for as long as the resolver takes; a cancellation
/// point, and may be left by a cancellation at any moment without a loss. Logs nothing.
HostLookup lookUpHost(const std::string& host);

#endif
