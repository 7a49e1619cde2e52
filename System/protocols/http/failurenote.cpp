// SPDX-License-Identifier: MIT
#include "System/protocols/http/failurenote.h"

#include <cerrno>

namespace http {

namespace {

thread_local HTTPFailure failure = {HTTPFailure::eNone, 0, 0, ""};

}  // namespace

void noteFailure(HTTPFailure::Reason reason, int error) {
    failure.mReason = reason;
    failure.mErrno = error;
    failure.mStatus = 0;
    failure.mPhrase[0] = '\0';
}

void noteStatus(int status, const std::string& phrase) {
    noteFailure(HTTPFailure::eStatus);
    failure.mStatus = status;
    failure.mPhrase[phrase.copy(failure.mPhrase, sizeof(failure.mPhrase) - 1)] = '\0';
}

void noteReceiveFailure(int error) {
    const bool late = error == EAGAIN || error == EWOULDBLOCK;
    noteFailure(late ? HTTPFailure::eReceiveTimeOut : HTTPFailure::eBroken, error);
}

const HTTPFailure& notedFailure() {
    return failure;
}

}  // namespace http
