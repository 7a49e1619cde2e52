// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_COMMANDS_FETCH_FETCHFAILURE_H
#define KESTROVA_APP_COMMANDS_FETCH_FETCHFAILURE_H

#include <string>

#include "System/protocols/http/httpfailure.h"

namespace app {

/// Returns why a document could not be fetched: "404 Not Found", "connection refused", "unknown
/// host", "no answer within 30 s". Safe to print; "" if there was no failure.
std::string fetchFailureText(const HTTPFailure& failure);

}  // namespace app

#endif
