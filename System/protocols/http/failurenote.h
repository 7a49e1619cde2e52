// SPDX-License-Identifier: MIT
//
// The reason for the HTTP client's last failure, one per thread, like errno.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_FAILURENOTE_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_FAILURENOTE_H

#include <string>

#include "System/protocols/http/httpfailure.h"

namespace http {

/// Replaces the calling thread's failure. None of these functions allocates, blocks or changes
/// errno.
void noteFailure(HTTPFailure::Reason reason, int error = 0);
/// Notes a status other than 200.
void noteStatus(int status, const std::string& phrase);
/// Notes a failed receive; `error` is its errno.
void noteReceiveFailure(int error);

/// Returns the calling thread's failure.
const HTTPFailure& notedFailure();

}  // namespace http

#endif
