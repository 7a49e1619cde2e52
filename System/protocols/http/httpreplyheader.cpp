// SPDX-License-Identifier: MIT
#include "System/protocols/http/httpreplyheader.h"

#include <strings.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "base/cancelguard.h"
#include "base/log.h"
#include "base/text.h"

namespace {

constexpr std::size_t kVersionLength = sizeof("HTTP/1.x ") - 1;

/// The version that a status line begins with; 0 for none that is known.
int parseVersion(const char* line) {
    if (std::strncmp(line, "HTTP/1.0 ", kVersionLength) == 0) {
        return 1;
    }
    return std::strncmp(line, "HTTP/1.1 ", kVersionLength) == 0 ? 2 : 0;
}

}  // namespace

bool HTTPReplyHeader::readHeaderLine(int fd, char* buf) {
    for (int count = 1; count <= kLineSize; ++count) {
        char* const byte = buf + count - 1;
        if (::recv(fd, byte, 1, 0) != 1 || *byte == '\0') {
            return false;
        }
        if (count > 1 && byte[-1] == '\r' && *byte == '\n') {
            byte[-1] = '\0';
            return true;
        }
    }
    return false;
}

bool HTTPReplyHeader::readRequestLine(int fd) {
    mFields.clear();
    char line[kLineSize];
    if (!readHeaderLine(fd, line)) {
        base::logMessage(2, "Invalid http reply\n");
        return false;
    }
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
            // This bare word, past the log, is what service staff look for. A cancellation inside
            // would leave half of it in the stream's buffer.
            const base::CancelGuard guard;
            (void)std::puts("Hmm");
            // In front of the log lines that follow, also when standard output is a file.
            (void)std::fflush(stdout);
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
    // Entering a missing name is meant: a later contentSize() sees it.
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
