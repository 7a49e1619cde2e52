// SPDX-License-Identifier: MIT
/// @file
/// The header of an HTTP reply, read from a socket.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPREPLYHEADER_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPREPLYHEADER_H

#include <map>
#include <string>

#include "base/export.h"

/// Status line and fields of a reply (RFC 1945, section 6). Reads one byte at a time, so that the
/// next byte on the socket is the first byte of the body.
///
/// Reading blocks as long as the socket does, and fails on any result of recv() other than one
/// byte, including EINTR. After a failure the object holds what was read so far, and the rest of an
/// earlier reply: use a new object for each reply, so that code 0 means that none was read. Reasons
/// are logged at level 2. A field line without ':' also prints "Hmm" to standard output, at any
/// level and without a flush. HTTPConnection::lastFailure() returns the reason as well.
///
/// Threads: no lock, one thread at a time. Reading is a cancellation point. The only exception is
/// std::bad_alloc.
class KESTROVA_EXPORT HTTPReplyHeader {
public:
    /// Size of the buffer of readHeaderLine() in bytes, which is also the length of the longest
    /// line with its CR LF.
    static constexpr int kLineSize = 1024;

    /// Nothing read: version and code 0, no reason, no fields.
    HTTPReplyHeader() = default;

    /// Reads one line, terminated by CR LF. A bare LF is not a line terminator.
    /// @param fd a connected socket
    /// @param[out] buf at least kLineSize bytes: the line without the CR LF, NUL-terminated; not
    /// terminated after a failure
    /// @return false if reading fails, on a NUL byte, and after kLineSize bytes without a line end
    bool readHeaderLine(int fd, char* buf);
    /// Clears the fields, then reads the status line. The status code is kept even if the rest of
    /// the line is refused.
    /// @param fd a connected socket
    /// @return true if the line is valid
    bool readRequestLine(int fd);
    /// Reads field lines, up to and including the empty line. Continuation lines are not supported.
    /// A name is kept as received, a value without its leading blanks; a later field replaces an
    /// earlier one of the same name.
    /// @param fd a connected socket
    /// @return true if the empty line was reached
    bool readEntityLines(int fd);
    /// Reads the whole header.
    /// @param fd a connected socket
    /// @return true if both parts are valid
    bool readHeader(int fd);

    /// Returns the value of a field. Inserts an empty value for a missing name, like
    /// std::map::operator[].
    /// @param name the exact name, case-sensitive
    /// @return the value; "" if there is none
    std::string getValue(std::string name);
    /// @return the value of "Content-Length": a decimal number, clamped to 32 bits; 0 if it is not
    /// a number or there is no such field. The name is matched case-insensitively; of several
    /// matches the first in the order of the names counts
    int contentSize() const;
    /// Does nothing.
    void print();

    /// @return 1 for "HTTP/1.0", 2 for "HTTP/1.1", 0 for any other version and before the first
    /// reply
    int version() const { return mVersion; }
    /// @return the status code, clamped to 32 bits; 0 before the first reply
    int code() const { return mCode; }
    /// @return the text after the status code and one space; valid until the next status line
    const std::string& reason() const { return mReason; }

private:
    int mVersion = 0;
    int mCode = 0;
    std::string mReason;
    std::map<std::string, std::string> mFields;
};

#endif
