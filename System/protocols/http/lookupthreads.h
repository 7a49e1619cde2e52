// SPDX-License-Identifier: MIT
//
// The threads that call the resolver.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_LOOKUPTHREADS_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_LOOKUPTHREADS_H

#include <string>

#include "System/protocols/http/hostlookup.h"

namespace http {

struct Question;

/// Calls gethostbyname_r(). The calling thread must not be cancelled during the call.
HostLookup askResolver(const char* host);

/// One caller's wait for the answer about a host. The constructor joins an existing question about
/// this host, or adds one; the destructor leaves it. A question without callers is dropped unless a
/// thread is already asking it.
class LookupWait {
public:
    explicit LookupWait(const std::string& host);
    ~LookupWait();
    LookupWait(const LookupWait&) = delete;
    LookupWait& operator=(const LookupWait&) = delete;

    /// Ensures that a thread asks the question, and waits for the answer. A cancellation point.
    HostLookup answer();

private:
    Question* mpQuestion = nullptr;
};

}  // namespace http

#endif
