// SPDX-License-Identifier: MIT
//
// Where the HTTP client keeps the reason of a failure: once for each thread, as errno.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_FAILURENOTE_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_FAILURENOTE_H

#include <string>

#include "System/protocols/http/httpfailure.h"

namespace http {

/// Replaces the calling thread's failure. None of these allocates, blocks or changes errno.
void noteFailure(HTTPFailure::Reason reason, int error = 0);
/// Notes a status other than 200.
void noteStatus(int status, const std::string& phrase);
/// Notes why a receive failed; `error` is its errno.
void noteReceiveFailure(int error);

/// The calling thread's failure.
const HTTPFailure& notedFailure();

}  // namespace http

#endif
