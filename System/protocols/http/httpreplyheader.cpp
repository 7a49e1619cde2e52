// SPDX-License-Identifier: MIT
#include "System/protocols/http/httpreplyheader.h"

#include <strings.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "System/protocols/http/failurenote.h"
#include "base/log/log.h"
#include "base/text/boundedtext.h"

namespace {

constexpr std::size_t kVersionLength = sizeof("HTTP/1.x ") - 1;

/// Returns the version at the start of a status line; 0 if it is unknown.
int parseVersion(const char* line) {
    if (std::strncmp(line, "HTTP/1.0 ", kVersionLength) == 0) {
        return 1;
    }
    return std::strncmp(line, "HTTP/1.1 ", kVersionLength) == 0 ? 2 : 0;
}

/// Notes why receiving one byte failed; a `received` of 1 means a NUL byte.
void noteReceived(ssize_t received) {
    if (received < 0) {
        http::noteReceiveFailure(errno);
    } else {
        http::noteFailure(received == 0 ? HTTPFailure::eEnded : HTTPFailure::eHeader);
    }
}

}  // namespace

bool HTTPReplyHeader::readHeaderLine(int fd, char* buf) {
    for (int count = 1; count <= kLineSize; ++count) {
        char* const byte = buf + count - 1;
        const ssize_t received = ::recv(fd, byte, 1, 0);
        if (received != 1 || *byte == '\0') {
            noteReceived(received);
            return false;
        }
        if (count > 1 && byte[-1] == '\r' && *byte == '\n') {
            byte[-1] = '\0';
            return true;
        }
    }
    http::noteFailure(HTTPFailure::eLongHeader);
    return false;
}

bool HTTPReplyHeader::readRequestLine(int fd) {
    mFields.clear();
    char line[kLineSize];
    if (!readHeaderLine(fd, line)) {
        base::logMessage(2, "Invalid http reply\n");
        return false;
    }
    // Only the text of the line can fail from this point.
    http::noteFailure(HTTPFailure::eHeader);
    if (std::strlen(line) < kVersionLength) {
        base::logMessage(2, "Invalid http reply (2)\n");
        return false;
    }
    mVersion = parseVersion(line);
    if (mVersion == 0) {
        base::logMessage(2, "Invalid http reply (3)\n");
        return false;
    }
    const char* const code = line + kVersionLength;
    const char* codeEnd = nullptr;
    mCode = base::parseNumber(code, codeEnd);
    if (codeEnd == code || *codeEnd != ' ') {
        base::logMessage(2, "Invalid http reply (4)\n");
        return false;
    }
    mReason = codeEnd + 1;
    http::noteFailure(HTTPFailure::eNone);
    return true;
}

bool HTTPReplyHeader::readEntityLines(int fd) {
    for (;;) {
        char buffer[kLineSize];
        const char* const line = buffer;
        if (!readHeaderLine(fd, buffer)) {
            base::logMessage(2, "Invalid http reply (5)\n");
            return false;
        }
        if (*line == '\0') {
            return true;
        }
        const char* const colon = std::strchr(line, ':');
        if (colon == nullptr) {
            // Service staff search for this bare word, which is not part of the log. Not flushed,
            // and called with cancellation enabled, because standard output may block.
            http::noteFailure(HTTPFailure::eHeader);
            (void)std::puts("Hmm");
            return false;
        }
        const char* const value = colon + 1;
        mFields[std::string(line, colon)] = value + std::strspn(value, " ");
    }
}

bool HTTPReplyHeader::readHeader(int fd) {
    if (!readRequestLine(fd) || !readEntityLines(fd)) {
        return false;
    }
    print();
    return true;
}

std::string HTTPReplyHeader::getValue(std::string name) {
    // Inserting a missing name is intentional: contentSize() then finds it.
    return mFields[std::move(name)];
}

int HTTPReplyHeader::contentSize() const {
    for (const auto& [name, value] : mFields) {
        if (::strcasecmp(name.c_str(), "Content-Length") == 0) {
            return base::parseNumber(value.c_str());
        }
    }
    return 0;
}

void HTTPReplyHeader::print() {}
