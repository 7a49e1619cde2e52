// SPDX-License-Identifier: MIT
/// @file
/// The header of an HTTP reply, read from a socket.
#ifndef KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPREPLYHEADER_H
#define KESTROVA_SYSTEM_PROTOCOLS_HTTP_HTTPREPLYHEADER_H

#include <map>
#include <string>

#include "base/export.h"

/// Status line and fields of a reply (RFC 1945, section 6). Reads a byte at a time, so that the
/// next byte on the socket is the first one of the body.
///
/// Reading blocks for as long as the socket does; any result of recv() other than one byte, also an
/// interruption, ends it. A failed read leaves in the object what was read until then, and from an
/// earlier reply what it did not come to: an object that is used once only has code 0 when no reply
/// came. Reasons are logged at level 2, except that a field line without ':' puts "Hmm" on standard
/// output, at any level and without a flush. HTTPConnection::lastFailure() returns the reason too.
///
/// Threads: no lock, one thread at a time. Reading is a cancellation point. Only allocation failure
/// is thrown.
class KESTROVA_EXPORT HTTPReplyHeader {
public:
    /// Room for a line in readHeaderLine(), in bytes, and the longest line with its CR LF.
    static constexpr int kLineSize = 1024;

    /// Nothing read: version and code 0, no reason, no fields.
    HTTPReplyHeader() = default;

    /// Reads one line, ended by CR LF. A lone LF ends no line.
    /// @param fd a connected socket
    /// @param[out] buf at least kLineSize bytes: the line without the CR LF, terminated; after a
    /// failure not terminated
    /// @return false when reading ends, on a NUL byte, and when kLineSize bytes have passed without
    /// an end
    bool readHeaderLine(int fd, char* buf);
    /// Forgets the fields, then reads the status line. A code that was read stays also when what
    /// follows it is refused.
    /// @param fd a connected socket
    /// @return true when the line is good
    bool readRequestLine(int fd);
    /// Reads field lines, up to and with the empty line. There are no continuation lines. A name is
    /// kept as it came, a value without the blanks in front; of two fields with the same name the
    /// later one stays.
    /// @param fd a connected socket
    /// @return true when the empty line was reached
    bool readEntityLines(int fd);
    /// Reads the whole header.
    /// @param fd a connected socket
    /// @return true when both parts are good
    bool readHeader(int fd);

    /// Looks a field up. A name that is missing is entered with an empty value, as the index
    /// operator of a map does.
    /// @param name the exact name; case counts
    /// @return the value; "" when there is none
    std::string getValue(std::string name);
    /// @return the number in the first field, in the order of the names, that is called
    /// "Content-Length" in any case: decimal, cut to the range of 32 bits; 0 when it is no number
    /// or there is no field
    int contentSize() const;
    /// Does nothing.
    void print();

    /// @return 1 for "HTTP/1.0", 2 for "HTTP/1.1", 0 before one is read and for any other
    int version() const { return mVersion; }
    /// @return the status code, cut to the range of 32 bits; 0 before one is read
    int code() const { return mCode; }
    /// @return what follows the status code and one space; valid until the next status line
    const std::string& reason() const { return mReason; }

private:
    int mVersion = 0;
    int mCode = 0;
    std::string mReason;
    std::map<std::string, std::string> mFields;
};

#endif
