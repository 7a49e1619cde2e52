// SPDX-License-Identifier: MIT
#include "app/commands/fetch/fetchfailure.h"

#include <cstring>

#include "app/ui/humantext.h"

namespace app {

namespace {

/// Returns the text, followed by the meaning of errno if there is one.
std::string withError(const char* text, int error) {
    return error == 0 ? text : std::string(text) + ": " + std::strerror(error);
}

std::string statusText(const HTTPFailure& failure) {
    const std::string phrase = printable(trimmed(failure.mPhrase));
    const std::string status = std::to_string(failure.mStatus);
    return phrase.empty() ? "status " + status : status + " " + phrase;
}

}  // namespace

std::string fetchFailureText(const HTTPFailure& failure) {
    switch (failure.mReason) {
        case HTTPFailure::eNone:
            return {};
        case HTTPFailure::eAddress:
            return "not of the form http://HOST[:PORT]/PATH";
        case HTTPFailure::eUnknownHost:
            return "unknown host";
        case HTTPFailure::eLookup:
            return withError("the host lookup failed", failure.mErrno);
        case HTTPFailure::eSocket:
            return withError("no socket", failure.mErrno);
        case HTTPFailure::eRefused:
            return "connection refused";
        case HTTPFailure::eConnectTimeOut:
            return "no connection within 30 s";
        case HTTPFailure::eConnect:
            return withError("no connection", failure.mErrno);
        case HTTPFailure::eSendTimeOut:
            return "the request was not sent within 30 s";
        case HTTPFailure::eSend:
            return withError("the request was not sent", failure.mErrno);
        case HTTPFailure::eReceiveTimeOut:
            return "no answer within 30 s";
        case HTTPFailure::eBroken:
            return withError("the connection broke", failure.mErrno);
        case HTTPFailure::eEnded:
            return "the server closed the connection before the end of its header";
        case HTTPFailure::eHeader:
            return "not an HTTP reply";
        case HTTPFailure::eLongHeader:
            return "the reply has a header line of more than 1022 characters";
        case HTTPFailure::eStatus:
            return statusText(failure);
        case HTTPFailure::eLength:
            return "the document is not as long as announced, or has 20480 bytes or more";
    }
    return {};
}

}  // namespace app
