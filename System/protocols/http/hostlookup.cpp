// SPDX-License-Identifier: MIT
//
// A thread that is cancelled inside the C library's resolver leaks the resolver's resources. A
// resolver whose server does not answer blocks for half a minute, and a cancelled download must not
// wait that long. Therefore threads that are never cancelled call the resolver, and callers wait
// for the answer.
#include "System/protocols/http/hostlookup.h"

#include "System/protocols/http/lookupthreads.h"
#include "base/cancelguard.h"

namespace http {

namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Returns true for digits and dots that begin and end with a digit: the resolver accepts or
/// refuses such a host without a query. Every other spelling of an address, such as "0x7f.1" or
/// "127.0.0.1.", is first looked up as a name.
bool isNumeric(const std::string& host) {
    return !host.empty() && isDigit(host.front()) && isDigit(host.back()) &&
           host.find_first_not_of("0123456789.") == std::string::npos;
}

}  // namespace

HostLookup lookUpHost(const std::string& host) {
    if (isNumeric(host)) {
        const base::CancelGuard guard;
        return askResolver(host.c_str());
    }
    return LookupWait(host).answer();
}

}  // namespace http
