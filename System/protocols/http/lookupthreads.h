// SPDX-License-Identifier: MIT
//
// The threads that ask the resolver, and how callers wait for their answers.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_LOOKUPTHREADS_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_LOOKUPTHREADS_H

#include <string>

#include "System/protocols/http/hostlookup.h"

namespace http {

struct Question;

/// Calls gethostbyname_r(). The calling thread must not be cancelled during the call.
HostLookup askResolver(const char* host);

/// One caller's wait for the answer about a host. The constructor joins the question about this
/// host that is under way, or opens one; the destructor withdraws from it. A question that nobody
/// waits for any more is dropped unless a thread already asks it.
class LookupWait {
public:
    explicit LookupWait(const std::string& host);
    ~LookupWait();
    LookupWait(const LookupWait&) = delete;
    LookupWait& operator=(const LookupWait&) = delete;

    /// Sees that a thread asks the question, and waits for the answer. A cancellation point.
    HostLookup answer();

private:
    Question* mpQuestion = nullptr;
};

}  // namespace http

#endif
